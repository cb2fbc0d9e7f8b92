#pragma once

#include "Engine/CVDBusPlayerLink.h"
#include "Engine/CVPlayerLink.h"
#include "Library/CVRhythmDBRewriter.h"
#include "Library/CVRhythmboxIdentities.h"

#include <QDateTime>
#include <QHash>
#include <QMutex>
#include <QSet>
#include <QStringList>

// Rhythmbox, which knows a song only by its location. While Rhythmbox runs, a new location is
// set live on its database (org.gnome.Rhythmbox3.RhythmDB.SetEntryProperties, with the
// mountpoint), and "quit" is `rhythmbox-client --quit`, after which Rhythmbox has written its
// file. While it does not run, new locations go to a journal in the support folder, and "quit"
// writes them into rhythmdb.xml (and playlists.xml) as the library-file link does. Either way a
// song's persistent ID follows it through the table of identities.
class CVRhythmboxPlayerLink : public CVPlayerLink {
public:
    static constexpr auto Service = "org.gnome.Rhythmbox3";
    static constexpr auto DatabaseObject = "/org/gnome/Rhythmbox3/RhythmDB";
    static constexpr auto DatabaseInterface = "org.gnome.Rhythmbox3.RhythmDB";
    static constexpr auto MprisService = "org.mpris.MediaPlayer2.rhythmbox";

    CVRhythmboxPlayerLink(const QString &databasePath, const QString &supportFolder, CVFileManagerLink *fileManager);

    QString databasePath() const { return m_databasePath; }
    QString journalPath() const { return m_journalPath; }
    // How Rhythmbox is asked to quit (default `rhythmbox-client --quit` when it is installed,
    // else the same request on the bus) and started.
    void setQuitCommand(const QStringList &command) { m_quitCommand = command; }
    void setLaunchCommand(const QStringList &command) { m_launchCommand = command; }
    void setCallTimeout(int milliseconds);
    void setLaunchTimeout(int milliseconds) { m_launchTimeoutMs = milliseconds; }

    // Journaled changes not yet in the library file.
    QList<CVRhythmDBRewriter::Change> pendingChanges() const;
    // Writes the journal into the library file; what quit does while Rhythmbox is not running.
    bool applyJournal(QString *error = nullptr);
    // Whether Rhythmbox owns its name on the session bus.
    bool isRhythmboxRunning() const;

    QString description() const override;
    // Rhythmbox is running, or changes wait for its file to be written.
    bool isRunning() override;
    bool isReady() override { return true; }
    QString checkLocationsCanBeSet() override;
    void prepareForChanges() override { letRhythmboxSettle(); }
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
    // The songs' locations by persistent ID and every entry's location, from the file as it is
    // now plus the journal; read again when the file changes.
    bool ensureLocations();
    QList<CVRhythmDBRewriter::Change> readJournal() const;
    bool appendToJournal(const CVRhythmDBRewriter::Change &change);
    bool setLive(const CVRhythmDBRewriter::Change &change);
    void letRhythmboxSettle();
    void noteMove(const QString &persistentID, const QByteArray &from, const QByteArray &to);
    bool applyJournalLocked(QString *error);

    QString m_databasePath;
    QString m_journalPath;
    CVFileManagerLink *m_fileManager;
    CVRhythmboxIdentities m_identities;
    CVDBusPlayerLink m_mpris;
    QStringList m_quitCommand;
    QStringList m_launchCommand { QStringLiteral("rhythmbox") };
    int m_timeoutMs = 10000;
    int m_launchTimeoutMs = 30000;
    bool m_quitRequested = false;
    // The process asked to quit: it still writes its file after its bus name is gone.
    qint64 m_quittingPid = 0;
    qint64 m_settledPid = 0; // the Rhythmbox that has been up long enough to take changes

    mutable QMutex m_mutex;
    bool m_scanned = false;
    QDateTime m_scannedModified;
    qint64 m_scannedSize = -1;
    QHash<QString, QByteArray> m_locations; // persistent ID -> URI
    QHash<QByteArray, QString> m_songs; // URI -> persistent ID
    QSet<QByteArray> m_taken; // every entry's location, songs or not
};
