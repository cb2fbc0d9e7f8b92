#pragma once

#include "Engine/CVPlayerLink.h"

#include <QHash>
#include <QMutex>

#include <functional>

// The player is the library file itself. A new location goes to a journal in the support
// folder at once (flushed, so a crash keeps it); "quit" writes every journaled location into
// the library file (only the Location strings change) and clears the journal. Play and reveal
// go to the desktop.
class CVLibraryFilePlayerLink : public CVPlayerLink {
public:
    // journalFolder: where the journal lives (the application support folder).
    CVLibraryFilePlayerLink(const QString &libraryPath, const QString &journalFolder, CVFileManagerLink *fileManager);

    // Makes, writes, flushes and removes a small file in the folder; the reason when it cannot
    // ("what" names the folder in it), else an empty text.
    static QString probeFolder(const QString &folder, const QString &what);

    QString libraryPath() const { return m_libraryPath; }
    QString journalPath() const { return m_journalPath; }
    // The path of a track's file by persistent ID, for play and reveal; set by the owner.
    void setTrackResolver(std::function<QString(const QString &)> resolver) { m_resolver = std::move(resolver); }

    // Journaled changes not yet in the library file.
    QHash<QString, QString> pendingLocations() const;
    // Writes the journal into the library file; what quit does. Errors are logged.
    bool applyJournal(QString *error = nullptr);

    QString description() const override;
    // "Running" while changes wait for the library file to be written.
    bool isRunning() override;
    bool isReady() override { return true; }
    // The journal's folder and the library file's folder both take a new file.
    QString checkLocationsCanBeSet() override;
    bool setTrackLocation(const QString &persistentID, const QString &path) override;
    std::optional<QString> trackLocation(const QString &persistentID) override;
    std::optional<quint32> playerState() override;
    QString currentTrackPersistentID() override;
    QString currentPlaylistName() override;
    std::optional<int> playerPosition() override;
    bool setPlayerPosition(int seconds) override;
    bool pause() override;
    bool playOnce(const QString &playlistName, const QString &persistentID) override;
    bool reveal(const QString &playlistName, const QString &persistentID) override;
    bool activate() override;
    void quit() override;
    bool launch() override;

private:
    QHash<QString, QString> readJournal() const;

    QString m_libraryPath;
    QString m_journalPath;
    CVFileManagerLink *m_fileManager;
    std::function<QString(const QString &)> m_resolver;
    mutable QMutex m_mutex;
    std::optional<QHash<QString, QString>> m_journaled; // the journal as read, with this process's lines
};
