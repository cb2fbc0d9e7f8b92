#include "Library/CVTrack.h"

#include "Library/CVFormatters.h"

#include <QDateTime>

using namespace Qt::StringLiterals;

bool CVTrack::hasDerived(CVAttr a) const
{
    switch (a) {
    case CVAttr::Season:
        return has(CVAttr::SortSeason);
    case CVAttr::DisplaySize:
    case CVAttr::DisplayTime:
    case CVAttr::DisplayDiscNumber:
        return true;
    case CVAttr::DisplaySampleRate:
        return real(CVAttr::SampleRate) != 0;
    case CVAttr::DisplayBitRate:
        return has(CVAttr::BitRate);
    default:
        return m_present.test(std::size_t(a));
    }
}

QString CVTrack::text(CVAttr a) const
{
    switch (a) {
    case CVAttr::Season:
        return has(CVAttr::SortSeason) ? u"Season %1"_s.arg(integer(CVAttr::SortSeason)) : QString();
    case CVAttr::DisplaySize:
        return CVFormatters::humanReadableSizeFromBytes(real(CVAttr::Size));
    case CVAttr::DisplayTime:
        return CVFormatters::humanReadableTimeFromMilliseconds(real(CVAttr::TotalTime), false);
    case CVAttr::DisplaySampleRate:
        return CVFormatters::formatSampleRate(real(CVAttr::SampleRate));
    case CVAttr::DisplayBitRate:
        return has(CVAttr::BitRate) ? u"%1 kbps"_s.arg(integer(CVAttr::BitRate)) : QString();
    case CVAttr::DisplayDiscNumber: {
        QString number = has(CVAttr::DiscNumber) ? QString::number(integer(CVAttr::DiscNumber)) : QString();
        const QString count
            = has(CVAttr::DiscCount) ? u" of "_s + QString::number(integer(CVAttr::DiscCount)) : QString();
        if (!count.isEmpty() && number.isEmpty())
            number = u"?"_s;
        return number + count;
    }
    default:
        break;
    }
    if (CVAttribute::type(a) == CVAttrType::Text)
        return has(a) ? textRef(a) : QString();
    return has(a) ? displayText(a) : QString();
}

QVariant CVTrack::value(CVAttr a) const
{
    if (!has(a))
        return {};
    switch (CVAttribute::type(a)) {
    case CVAttrType::Text:
        return textRef(a);
    case CVAttrType::Integer:
        return integer(a);
    case CVAttrType::Real:
        return real(a);
    case CVAttrType::Date:
        return QDateTime::fromSecsSinceEpoch(date(a), Qt::UTC);
    case CVAttrType::Boolean:
        return flag(a);
    case CVAttrType::Derived:
        return text(a);
    }
    return {};
}

QString CVTrack::displayText(CVAttr a) const
{
    if (!has(a))
        return {};
    switch (CVAttribute::type(a)) {
    case CVAttrType::Integer:
        return QString::number(integer(a));
    case CVAttrType::Real:
        return QString::number(real(a), 'g', 17);
    case CVAttrType::Date:
        return CVFormatters::formatDate(date(a));
    case CVAttrType::Boolean:
        return flag(a) ? u"1"_s : u"0"_s;
    default:
        return text(a);
    }
}
