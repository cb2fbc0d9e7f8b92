#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <vector>

// Rhythmbox knows a song only by its location, which a span changes. Corvana gives each song a
// persistent ID derived from the location at which it first saw it, and keeps the later
// locations of a song in a small table in the support folder ("<pid> TAB <uri>" lines, appended
// and never rewritten), so that a song found at its span location keeps its ID and its history.
class CVRhythmboxIdentities {
public:
    // One table per library file, like the player journal.
    CVRhythmboxIdentities(const QString &supportFolder, const QString &databasePath);

    QString path() const { return m_path; }
    // The library's persistent ID: derived from the library file's path.
    static QString libraryPersistentID(const QString &databasePath);
    // The ID a location gets when nothing else claims it; `attempt` gives the alternatives.
    static QString derivedID(QByteArrayView uri, int attempt = 0);

    // Reads the table again; a missing table is an empty one.
    bool load(QString *error = nullptr);
    // The IDs of the songs of one read, in their order: each location the ID the table gives it
    // (else its derived one); where two songs come to one ID, the one at the ID's latest
    // location keeps it and the other gets an alternative. Never the same ID twice.
    std::vector<QString> resolve(const std::vector<QByteArray> &uris) const;
    // Notes a song's new location before the player is told it. False (with the reason) when
    // the line cannot be written.
    bool record(const QString &persistentID, const QByteArray &uri, QString *error = nullptr);
    // The latest location the table has for an ID, or an empty array.
    QByteArray latestLocation(const QString &persistentID) const { return m_latest.value(persistentID); }

private:
    QString m_path;
    QHash<QByteArray, QString> m_byLocation; // the latest line of each location
    QHash<QString, QByteArray> m_latest; // the latest location of each ID
};
