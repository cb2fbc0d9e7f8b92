#pragma once

#include "Engine/CVDBusPlayerLink.h"
#include "Engine/CVPlayerLink.h"
#include "Library/CVStrawberryRewriter.h"

#include <QHash>
#include <QMutex>
#include <QSet>
#include <QStringList>

// Strawberry, whose collection is a SQLite database that it re-saves from memory while it runs
// and that it has no command to change. So Strawberry is quit (MPRIS Quit, its reply waited
// for, then its name and its process) before a run copies anything; new places go to a journal
// in the support folder, and "quit" writes them into the database (after a backup, in one
// transaction). Strawberry comes back afterwards on the song it was playing. A song's
// persistent ID is its ROWID, which the rewrite keeps.
class CVStrawberryPlayerLink : public CVPlayerLink {
public:
    static constexpr auto MprisService = "org.mpris.MediaPlayer2.strawberry";

    CVStrawberryPlayerLink(const QString &databasePath, const QString &supportFolder, CVFileManagerLink *fileManager);

    QString databasePath() const { return m_databasePath; }
    QString journalPath() const { return m_journalPath; }
    QString backupPath() const { return m_backupPath; }
    void setLaunchCommand(const QStringList &command) { m_launchCommand = command; }
    // How long Strawberry may take to quit, and to start.
    void setQuitTimeout(int milliseconds) { m_quitTimeoutMs = milliseconds; }
    void setLaunchTimeout(int milliseconds) { m_launchTimeoutMs = milliseconds; }

    // What Strawberry's own settings (strawberry.conf) will do to songs whose drive stays away,
    // when they would delete them; an empty text when they keep them.
    static QString unavailableSongsWarning(const QString &configFile);
    static QString strawberryConfigFile();

    QList<CVStrawberryRewriter::Change> pendingChanges() const;
    // Writes the journal into the database; what quit does once Strawberry is not running.
    bool applyJournal(QString *error = nullptr);
    bool isStrawberryRunning() const;
    // Quits a running Strawberry and waits for its name and its process to go. False (with the
    // reason) when it is still there at the time limit.
    bool quitStrawberry(QString *error = nullptr);

    QString description() const override;
    bool isRunning() override;
    bool isReady() override { return true; }
    void setRunSpanLocation(const QString &location) override { m_runSpanLocation = location; }
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
    bool ensureSongs();
    QList<CVStrawberryRewriter::Change> readJournal() const;
    bool applyJournalLocked(QString *error);
    qint64 rowIDOfURL(const QByteArray &url) const { return m_byURL.value(url); }

    QString m_databasePath;
    QString m_journalPath;
    QString m_backupPath;
    CVFileManagerLink *m_fileManager;
    CVDBusPlayerLink m_mpris;
    QStringList m_launchCommand { QStringLiteral("strawberry") };
    int m_quitTimeoutMs = 20000;
    int m_launchTimeoutMs = 30000;
    QString m_runSpanLocation;
    bool m_startedAfterWrite = false;

    // What Strawberry was doing when Corvana quit it, for the run's end to bring it back.
    struct Before {
        bool running = false;
        quint32 state = StateStopped;
        qint64 rowID = 0;
        int position = 0;
    };
    Before m_before;

    mutable QMutex m_mutex;
    bool m_scanned = false;
    QHash<qint64, QByteArray> m_urls; // ROWID -> url, with the journal's changes
    QHash<QByteArray, qint64> m_byURL;
    QSet<QByteArray> m_shared; // places of more than one song
};
