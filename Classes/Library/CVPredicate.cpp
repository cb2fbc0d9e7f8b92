#include "Library/CVPredicate.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

CVPredicate CVPredicate::fromText(const QString &text)
{
    CVPredicate p;
    p.m_text = text;
    return p;
}

CVPredicate CVPredicate::forTrackIDs(std::vector<qint64> ascendingIDs)
{
    CVPredicate p;
    p.m_kind = Kind::Dictionary;
    p.m_field = CVAttr::TrackID;
    p.m_trackIDs = std::move(ascendingIDs);
    return p;
}

CVPredicate CVPredicate::forPersistentIDs(QStringList ids)
{
    CVPredicate p;
    p.m_kind = Kind::Dictionary;
    p.m_field = CVAttr::PersistentID;
    p.m_persistentIDs = std::move(ids);
    return p;
}

QJsonObject CVPredicate::toJson() const
{
    QJsonObject o;
    if (m_kind != Kind::Dictionary)
        return o;
    QJsonArray ids;
    if (m_field == CVAttr::TrackID) {
        for (qint64 id : m_trackIDs)
            ids.append(id);
        o.insert(u"TrackID"_s, ids);
    } else {
        for (const QString &id : m_persistentIDs)
            ids.append(id);
        o.insert(u"PersistentID"_s, ids);
    }
    if (!m_cacheKey.isNull())
        o.insert(u"cacheKey"_s, m_cacheKey);
    if (m_isPlaylist)
        o.insert(u"isPlaylist"_s, true);
    if (m_isSavedQueue)
        o.insert(u"isSavedQueue"_s, true);
    if (m_noSearch)
        o.insert(u"noSearch"_s, true);
    return o;
}

CVPredicate CVPredicate::fromJson(const QJsonObject &o)
{
    CVPredicate p;
    // "TrackID" is looked at first.
    if (o.contains(u"TrackID"_s)) {
        std::vector<qint64> ids;
        for (const QJsonValue &v : o.value(u"TrackID"_s).toArray())
            ids.push_back(v.toInteger());
        p = forTrackIDs(std::move(ids));
    } else {
        QStringList ids;
        for (const QJsonValue &v : o.value(u"PersistentID"_s).toArray())
            ids.append(v.toString());
        p = forPersistentIDs(std::move(ids));
    }
    if (o.contains(u"cacheKey"_s))
        p.m_cacheKey = o.value(u"cacheKey"_s).toString();
    p.m_isPlaylist = o.contains(u"isPlaylist"_s);
    p.m_isSavedQueue = o.contains(u"isSavedQueue"_s);
    p.m_noSearch = o.contains(u"noSearch"_s);
    return p;
}

QString CVPredicate::memoKey() const
{
    if (m_kind == Kind::Text)
        return u'T' + m_text;
    if (!m_cacheKey.isNull())
        return u'K' + m_cacheKey;
    return u'D' + description();
}

QString CVPredicate::description() const
{
    if (m_kind == Kind::Text)
        return m_text;
    return QString::fromUtf8(QJsonDocument(toJson()).toJson(QJsonDocument::Compact));
}
