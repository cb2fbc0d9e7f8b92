#pragma once

#include "CVHDependentTrack.h"
#include "CVHLinkRepairer.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <functional>
#include <vector>

class CVHFolderWatcher;
class CVHMountWatcher;
class CVHNotifier;
class CVHUserDefaults;
class QDBusServiceWatcher;

// Corvana Helper: keeps the player's links to dependently spanned tracks in place while
// Corvana is not running, and warns when such tracks cannot be played. It owns
// org.corvana.CorvanaHelper on the session bus (one per user) and sleeps until a drive comes
// or goes, the span history changes, a player starts, or it is asked something.
//
// The D-Bus interface (share/dbus/org.corvana.CorvanaHelper1.xml) calls the members named
// as its methods and properties.
class CVHCorvanaHelper : public QObject {
    Q_OBJECT
    Q_PROPERTY(uint DependentTracks READ dependentTrackCount)
    Q_PROPERTY(uint LinksMade READ linksMade)
    Q_PROPERTY(uint TracksUnavailable READ tracksUnavailable)
    Q_PROPERTY(QString Status READ statusLine)

public:
    enum class StartResult { Running, AlreadyRunning, NoSessionBus, NotNeeded };

    explicit CVHCorvanaHelper(QObject *parent = nullptr);
    ~CVHCorvanaHelper() override;

    StartResult start();

    uint dependentTrackCount() const { return uint(m_tracks.size()); }
    uint linksMade() const { return m_linksMade; }
    uint tracksUnavailable() const { return uint(m_unavailable.size()); }
    QString statusLine() const;

    // The helper's own autostart entry.
    bool startsAtLogin() const;
    void setStartsAtLogin(bool on);
    // The main program, as it last recorded itself; empty when it cannot be found.
    QString corvanaProgram() const;
    void openCorvana();

public Q_SLOTS:
    void Quit();
    uint RepairLinksNow();

Q_SIGNALS:
    void statusChanged();
    void quitRequested();

private:
    enum class Warnings { FilesMissing, None };

    void reloadHistory();
    // Repairs the tracks chosen, keeps the unavailable ones, and returns how many links were
    // made or corrected.
    uint repairTracks(const std::function<bool(const CVHDependentTrack &)> &which, Warnings warnings);
    bool checkNecessity();
    void offerLoginItem();
    void onMountsAppeared(const QStringList &points);
    void onMountsDisappeared(const QStringList &points);
    void onFolderChanged(const QString &folder, const QString &name, quint32 mask);
    void onStoreSettled();
    void onPlayerStarted();
    void onNotificationAction(const QString &kind, const QString &key);
    void publishStatus();
    QByteArray storeSignature() const;
    bool corvanaIsRunning() const;

    CVHUserDefaults &m_defaults;
    CVHNotifier *m_notifier;
    CVHMountWatcher *m_mounts;
    CVHFolderWatcher *m_folders;
    QDBusServiceWatcher *m_players = nullptr;
    CVHLinkRepairer m_repairer;
    QString m_storePath;
    QByteArray m_storeSignature;
    QString m_libraryFolder;
    QTimer m_storeSettle;
    QTimer m_playerQuiet;
    bool m_quitting = false;

    std::vector<CVHDependentTrack> m_tracks;
    QHash<QString, CVHLinkRepairer::Outcome> m_unavailable;
    QSet<QString> m_missingReported;
    QSet<QString> m_failureReported;
    QSet<QString> m_realItemsLogged;
    uint m_linksMade = 0;
    QString m_lastStatus;
    QString m_historyError;
};
