#pragma once

#include "Library/CVAttribute.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <vector>

// A selection of tracks: a filter text ("" selects everything, "EMPTY" nothing) or a
// dictionary that lists track identifiers. A value type, cheap to copy.
class CVPredicate {
public:
    enum class Kind { Text, Dictionary };

    CVPredicate() = default;
    static CVPredicate fromText(const QString &text);
    static CVPredicate forTrackIDs(std::vector<qint64> ascendingIDs);
    static CVPredicate forPersistentIDs(QStringList ids);

    Kind kind() const { return m_kind; }
    const QString &text() const { return m_text; }

    // The identifier field of a dictionary predicate: TrackID or PersistentID.
    CVAttr identifierField() const { return m_field; }
    const std::vector<qint64> &trackIDs() const { return m_trackIDs; }
    const QStringList &persistentIDs() const { return m_persistentIDs; }

    const QString &cacheKey() const { return m_cacheKey; }
    void setCacheKey(const QString &key) { m_cacheKey = key; }
    bool isPlaylist() const { return m_isPlaylist; }
    void setIsPlaylist(bool on) { m_isPlaylist = on; }
    bool isSavedQueue() const { return m_isSavedQueue; }
    void setIsSavedQueue(bool on) { m_isSavedQueue = on; }
    bool noSearch() const { return m_noSearch; }
    void setNoSearch(bool on) { m_noSearch = on; }

    // The dictionary form as JSON: {"TrackID": [...], "isPlaylist": true, "cacheKey": "..."};
    // a filter text as a JSON string is the caller's business.
    QJsonObject toJson() const;
    static CVPredicate fromJson(const QJsonObject &object);

    // The key that names this predicate in the memo: the text, or the cache key, or the
    // dictionary itself. Texts and dictionaries never share a key.
    QString memoKey() const;
    // A compact text for logs and the command line.
    QString description() const;

    bool operator==(const CVPredicate &other) const = default;

private:
    Kind m_kind = Kind::Text;
    QString m_text;
    CVAttr m_field = CVAttr::TrackID;
    std::vector<qint64> m_trackIDs;
    QStringList m_persistentIDs;
    QString m_cacheKey;
    bool m_isPlaylist = false;
    bool m_isSavedQueue = false;
    bool m_noSearch = false;
};
