#pragma once

#include "Engine/CVPlayerLink.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QStringList>
#include <QVariant>

// A player on the session bus: MPRIS2 for playback and quitting, org.corvana.PlayerLibrary1
// (share/dbus/) for track locations. Every call has a time limit, so a player that does not
// answer costs seconds, not the run.
class CVDBusPlayerLink : public CVPlayerLink {
public:
    static constexpr auto LibraryInterface = "org.corvana.PlayerLibrary1";
    static constexpr auto ObjectPath = "/org/mpris/MediaPlayer2";

    explicit CVDBusPlayerLink(const QString &service);

    // The first MPRIS player on the session bus that offers the library interface.
    static QString findPlayerService();

    QString service() const { return m_service; }
    // How the player is started again when it is not running (besides D-Bus activation).
    void setLaunchCommand(const QStringList &command) { m_launchCommand = command; }
    void setCallTimeout(int milliseconds) { m_timeoutMs = milliseconds; }
    // How long launch() waits for the player's name.
    void setLaunchTimeout(int milliseconds) { m_launchTimeoutMs = milliseconds; }

    QString description() const override;
    bool isRunning() override;
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
    std::optional<QDBusMessage> call(
        const QString &interface, const QString &method, const QVariantList &arguments, bool wait = true);
    std::optional<QVariant> property(const QString &interface, const QString &name);

    QString m_service;
    QStringList m_launchCommand;
    int m_timeoutMs = 10000;
    int m_launchTimeoutMs = 15000;
};
