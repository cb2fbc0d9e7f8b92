#pragma once

#include <QString>

#include <memory>
#include <optional>

class CVFileManagerLink;

// The player's states are four-character codes.
constexpr quint32 cvFourCharCode(const char (&code)[5])
{
    return quint32(quint8(code[0])) << 24 | quint32(quint8(code[1])) << 16 | quint32(quint8(code[2])) << 8
        | quint32(quint8(code[3]));
}

// What the engine needs of the music player: where its tracks' files are, its playback state,
// and a quit that makes it write its library file. Two kinds: the library file itself, and a
// player on the session bus. Calls block their caller; failures are logged and yield nothing.
class CVPlayerLink {
public:
    static constexpr quint32 StateStopped = cvFourCharCode("kPSS");
    static constexpr quint32 StatePaused = cvFourCharCode("kPSp");
    static constexpr quint32 StatePlaying = cvFourCharCode("kPSP");

    virtual ~CVPlayerLink();

    virtual QString description() const = 0;
    virtual bool isRunning() = 0;
    // Whether a track's location can be set without starting the player first.
    virtual bool isReady() { return isRunning(); }

    // Where the coming run puts its copies (none for a restore), told before it checks the link.
    virtual void setRunSpanLocation(const QString &) { }
    // Why new locations cannot be taken and kept now (an empty text when they can): what a run
    // checks with a real write before it copies anything.
    virtual QString checkLocationsCanBeSet() { return {}; }
    // Called on the run's thread before its first copy: a player that just started may need a
    // moment before it keeps what it is told.
    virtual void prepareForChanges() { }
    // Points the player's file track at the path. False when the player does not hold the track.
    virtual bool setTrackLocation(const QString &persistentID, const QString &path) = 0;
    // The player's idea of where the track's file is (reading it makes the player look again).
    virtual std::optional<QString> trackLocation(const QString &persistentID) = 0;

    virtual std::optional<quint32> playerState() = 0;
    virtual QString currentTrackPersistentID() = 0;
    virtual QString currentPlaylistName() = 0;
    virtual std::optional<int> playerPosition() = 0; // whole seconds
    virtual bool setPlayerPosition(int seconds) = 0;
    virtual bool pause() = 0;
    // Plays the track once from the named playlist, starting the player when it is not running.
    virtual bool playOnce(const QString &playlistName, const QString &persistentID) = 0;
    virtual bool reveal(const QString &playlistName, const QString &persistentID) = 0;
    virtual bool activate() = 0;
    // Asks the player to quit, which makes it write its library file. Returns without waiting.
    virtual void quit() = 0;
    virtual bool launch() = 0;

    // For Rhythmbox's library file, Rhythmbox; for Strawberry's database, Strawberry. Otherwise, by the player asked
    // for ("auto", "itunes-file", "dbus", as the preference "Player" says): the player on the session bus when one owns
    // its name (never for "itunes-file"), else the library file. Nothing for "dbus" when no such player is on the bus.
    static std::unique_ptr<CVPlayerLink> choose(
        const QString &libraryPath, CVFileManagerLink *fileManager, const QString &player = QStringLiteral("auto"));
};
