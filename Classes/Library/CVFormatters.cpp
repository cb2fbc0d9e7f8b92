#include "Library/CVFormatters.h"

#include "Platform/CVVolumes.h"

#include <QDateTime>

#include <cmath>
#include <cstdio>
#include <ctime>

using namespace Qt::StringLiterals;

namespace {

// Kept as it stands: the single-precision value nearest to 10^12.
constexpr double kTera = 999999995904.0;

} // namespace

QString CVFormatters::humanReadableSizeFromBytes(double b)
{
    if (b == 1)
        return u"1 byte"_s;
    if (b < 1000)
        return u"%1 bytes"_s.arg(qint64(b));
    if (b < 1000000)
        return QString::asprintf("%1.2f KB", b / 1000);
    if (b < 1000000000)
        return QString::asprintf("%1.2f MB", b / 1000000);
    if (b < kTera)
        return QString::asprintf("%1.2f GB", b / 1000000000);
    return QString::asprintf("%1.2f TB", b / kTera);
}

QString CVFormatters::formatSampleRate(double r)
{
    if (r == 0)
        return {};
    if (r == 1)
        return u"1 hert"_s;
    if (r < 1000)
        return u"%1 hertz"_s.arg(qint64(r));
    if (r < 1000000)
        return QString::asprintf("%1.3f kHz", r / 1000);
    if (r < 1000000000)
        return QString::asprintf("%1.3f mHz", r / 1000000);
    if (r < kTera)
        return QString::asprintf("%1.3f gHz", r / 1000000000);
    return QString::asprintf("%1.3f tHz", r / kTera);
}

QString CVFormatters::humanReadableTimeFromMilliseconds(double m, bool roundOffTime)
{
    const auto whole = [](double v) { return qint64(std::floor(v)); };
    const qint64 s = whole(m / 1000) % 60;
    const qint64 n = whole(m / 60000) % 60;
    const qint64 h = whole(m / 3600000) % 24;
    const qint64 d = whole(m / 86400000);
    if (roundOffTime) {
        if (d > 0)
            return QString::asprintf("%1.1f days", m / 86400000);
        if (h > 0)
            return QString::asprintf("%1.1f hours", m / 3600000);
        if (n > 0)
            return QString::asprintf("%1.1f minutes", m / 60000);
        return u"%1 seconds"_s.arg(s);
    }
    const QString dayPiece = d > 0 ? u"%1:"_s.arg(d) : QString();
    QString hourPiece;
    if (h <= 9 && d > 0)
        hourPiece = u"0%1:"_s.arg(h);
    else if (h > 0)
        hourPiece = u"%1:"_s.arg(h);
    // The minute is padded only when the hour is not 0: one day and three minutes read 1:00:3:00.
    const QString minutePiece = (n <= 9 && h != 0) ? u"0%1"_s.arg(n) : QString::number(n);
    const QString secondPiece = s <= 9 ? u"0%1"_s.arg(s) : QString::number(s);
    return dayPiece + hourPiece + minutePiece + u':' + secondPiece;
}

QString CVFormatters::formatDate(qint64 secondsSinceEpoch)
{
    // The C library's conversion: a track list shows thousands of these while scrolling.
    static const bool zoneRead = [] {
        tzset();
        return true;
    }();
    Q_UNUSED(zoneRead)
    const time_t t = time_t(secondsSinceEpoch);
    struct tm local { };
    if (!localtime_r(&t, &local))
        return {};
    const int hour12 = local.tm_hour % 12 == 0 ? 12 : local.tm_hour % 12;
    char text[48];
    std::snprintf(text, sizeof text, "%02d/%02d/%04d %02d:%02d:%02d %s", local.tm_mon + 1, local.tm_mday,
        local.tm_year + 1900, hour12, local.tm_min, local.tm_sec, local.tm_hour < 12 ? "AM" : "PM");
    return QString::fromLatin1(text);
}

QString CVFormatters::customSortString(const QString &sortValue, const QString &value)
{
    static const QString kLast = u"zzzz"_s;
    const QString &source = !sortValue.isNull() ? sortValue : value;
    if (source.isNull())
        return kLast;
    const QString lower = source.toLower();
    qsizetype first = 0;
    while (first < lower.size() && !lower.at(first).isLetterOrNumber())
        ++first;
    if (first == lower.size())
        return kLast;
    const QString text = first == 0 ? lower : lower.mid(first);
    const QChar c = text.at(0);
    if (c >= u'0' && c <= u'9')
        return u"zzz"_s + text;
    return text;
}

QString CVFormatters::createDisplayTitleForPath(const QString &path, const QString &startupDriveName)
{
    if (path.isEmpty())
        return {};
    const QString own = CVVolumes::displayName(path, startupDriveName);
    const QString withoutSlash = path.size() > 1 && path.endsWith(u'/') ? path.chopped(1) : path;
    if (withoutSlash == u"/"_s || CVVolumes::isDriveRoot(withoutSlash))
        return own;
    const QString root = CVVolumes::driveRootOfPath(withoutSlash);
    const QString drive = root.isEmpty() ? CVVolumes::displayName(u"/"_s, startupDriveName)
                                         : CVVolumes::displayName(root, startupDriveName);
    return own + u" (on "_s + drive + u')';
}
