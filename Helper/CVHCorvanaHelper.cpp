#include "CVHCorvanaHelper.h"

#include "CVHFolderWatcher.h"
#include "CVHMountWatcher.h"
#include "CVHNotifier.h"
#include "CVHSpanHistoryReader.h"
#include "CorvanaHelper1Adaptor.h"
#include "Platform/CVHUserDefaults.h"
#include "Platform/CVHelperApplicationControl.h"
#include "Platform/CVInstanceLock.h"
#include "Platform/CVLog.h"
#include "Platform/CVLoginItems.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QProcess>
#include <QStandardPaths>

#include <sys/inotify.h>

using namespace Qt::StringLiterals;

namespace {

const QString kStoreName = u"SpanRestoreHistory.cvcddb"_s;
const QStringList kLibraryNames { u"iTunes Library.xml"_s, u"iTunes Music Library.xml"_s };
// The helper's own memory, in the shared settings: tracks depended on it when it last looked.
constexpr CVHSettingsKey kHadDependentTracks = CVHSettingsKey::HadDependentTracks;
// The main program's executable, recorded by a Corvana with a window when it starts the helper.
constexpr CVHSettingsKey kCorvanaApplication = CVHSettingsKey::CorvanaApplication;

QString plural(qsizetype n)
{
    return n == 1 ? QString() : u"s"_s;
}

QString count(qsizetype n)
{
    return QLocale::system().toString(qlonglong(n));
}

// "“A”", "“A” and “B”", "“A”, “B” and 3 more".
QString trackNames(const QStringList &names)
{
    QStringList quoted;
    for (const QString &name : names.mid(0, 2))
        quoted.append(u"“%1”"_s.arg(name.isEmpty() ? u"Untitled"_s : name));
    if (names.size() > 3)
        return quoted.join(u", "_s) + u" and %1 more"_s.arg(count(names.size() - 2));
    if (names.size() == 3)
        quoted.append(u"“%1”"_s.arg(names[2]));
    if (quoted.size() == 1)
        return quoted[0];
    return QStringList(quoted.mid(0, quoted.size() - 1)).join(u", "_s) + u" and "_s + quoted.last();
}

bool under(const QString &path, const QString &folder)
{
    return folder == u"/"_s || path.startsWith(folder + u'/');
}

} // namespace

CVHCorvanaHelper::CVHCorvanaHelper(QObject *parent)
    : QObject(parent)
    , m_defaults(CVHUserDefaults::standardUserDefaults())
    , m_notifier(new CVHNotifier(this))
    , m_mounts(new CVHMountWatcher(this))
    , m_folders(new CVHFolderWatcher(this))
    , m_storePath(CVHSpanHistoryReader::defaultStorePath())
    , m_libraryFolder(QDir::homePath() + u"/Music/iTunes"_s)
{
    new CorvanaHelper1Adaptor(this);
    m_repairer.setMountCheck([this](const QString &root) { return m_mounts->isMountPoint(root); });
    // Both timers run only after something happened: an idle helper has none running.
    m_storeSettle.setSingleShot(true);
    m_storeSettle.setInterval(1000);
    connect(&m_storeSettle, &QTimer::timeout, this, &CVHCorvanaHelper::onStoreSettled);
    m_playerQuiet.setSingleShot(true);
    m_playerQuiet.setInterval(3000);
    connect(m_mounts, &CVHMountWatcher::mountsAppeared, this, &CVHCorvanaHelper::onMountsAppeared);
    connect(m_mounts, &CVHMountWatcher::mountsDisappeared, this, &CVHCorvanaHelper::onMountsDisappeared);
    connect(m_folders, &CVHFolderWatcher::changed, this, &CVHCorvanaHelper::onFolderChanged);
    connect(m_notifier, &CVHNotifier::actionInvoked, this, &CVHCorvanaHelper::onNotificationAction);
}

CVHCorvanaHelper::~CVHCorvanaHelper() = default;

CVHCorvanaHelper::StartResult CVHCorvanaHelper::start()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()) {
        CVLog::log(u"Corvana Helper needs a session bus: %1"_s.arg(bus.lastError().message()));
        return StartResult::NoSessionBus;
    }
    const QString path = QString::fromLatin1(CVHelperApplicationControl::ObjectPath);
    bus.registerObject(path, this);
    const auto reply = bus.interface()->registerService(QString::fromLatin1(CVHelperApplicationControl::BusName),
        QDBusConnectionInterface::DontQueueService, QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid() || reply.value() != QDBusConnectionInterface::ServiceRegistered) {
        bus.unregisterObject(path);
        CVLog::log(u"Corvana Helper is already running."_s);
        return StartResult::AlreadyRunning;
    }

    QString error;
    if (!m_mounts->start(&error))
        CVLog::log(error);
    m_folders->watch(QFileInfo(m_storePath).absolutePath(),
        IN_MODIFY | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM);
    m_folders->watch(m_libraryFolder, IN_OPEN);
    m_players
        = new QDBusServiceWatcher(u"org.mpris.MediaPlayer2*"_s, bus, QDBusServiceWatcher::WatchForRegistration, this);
    connect(m_players, &QDBusServiceWatcher::serviceRegistered, this, &CVHCorvanaHelper::onPlayerStarted);

    reloadHistory();
    repairTracks([](const CVHDependentTrack &) { return true; }, Warnings::FilesMissing);
    if (!checkNecessity())
        return StartResult::NotNeeded;
    offerLoginItem();
    return StartResult::Running;
}

QString CVHCorvanaHelper::statusLine() const
{
    const qsizetype n = qsizetype(m_tracks.size());
    if (n == 0)
        return u"No dependent tracks"_s;
    if (m_unavailable.isEmpty())
        return n == 1 ? u"1 dependent track, playable"_s : u"%1 dependent tracks, all playable"_s.arg(count(n));
    return u"%1 of %2 dependent track%3 unavailable"_s.arg(count(m_unavailable.size()), count(n), plural(n));
}

void CVHCorvanaHelper::Quit()
{
    if (m_quitting)
        return;
    m_quitting = true;
    // Let go of the name first: whoever asked may start a new helper at once.
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.unregisterService(QString::fromLatin1(CVHelperApplicationControl::BusName));
    Q_EMIT quitRequested();
    QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit, Qt::QueuedConnection);
}

uint CVHCorvanaHelper::RepairLinksNow()
{
    reloadHistory();
    const uint made = repairTracks([](const CVHDependentTrack &) { return true; }, Warnings::FilesMissing);
    checkNecessity();
    return made;
}

void CVHCorvanaHelper::reloadHistory()
{
    std::vector<CVHDependentTrack> tracks;
    QString error;
    const bool ok = CVHSpanHistoryReader::read(m_storePath, tracks, &error);
    m_storeSignature = storeSignature();
    if (!ok) {
        // Keep what was read before; say so once per kind of failure.
        if (error != m_historyError)
            CVLog::log(u"Corvana Helper cannot read the span history: %1"_s.arg(error));
        m_historyError = error;
        return;
    }
    m_historyError.clear();
    m_tracks = std::move(tracks);
    QSet<QString> ids;
    for (const CVHDependentTrack &t : m_tracks)
        ids.insert(t.persistentID);
    for (auto it = m_unavailable.begin(); it != m_unavailable.end();)
        it = ids.contains(it.key()) ? std::next(it) : m_unavailable.erase(it);
    m_missingReported.intersect(ids);
    m_failureReported.intersect(ids);
}

uint CVHCorvanaHelper::repairTracks(const std::function<bool(const CVHDependentTrack &)> &which, Warnings warnings)
{
    uint made = 0;
    QStringList newlyMissing, failures;
    QString firstError;
    for (const CVHDependentTrack &track : m_tracks) {
        if (!which(track))
            continue;
        const CVHLinkRepairer::Result result = m_repairer.repair(track);
        switch (result.outcome) {
        case CVHLinkRepairer::Outcome::Made:
        case CVHLinkRepairer::Outcome::Corrected:
            ++made;
            break;
        case CVHLinkRepairer::Outcome::RealItemInPlace:
            if (!m_realItemsLogged.contains(track.persistentID)) {
                m_realItemsLogged.insert(track.persistentID);
                CVLog::log(
                    u"Corvana Helper leaves %1 as it is: a file of its own stands there"_s.arg(track.playerLocation));
            }
            break;
        case CVHLinkRepairer::Outcome::SpanMissing:
            if (!m_missingReported.contains(track.persistentID)) {
                m_missingReported.insert(track.persistentID);
                newlyMissing.append(track.name);
            }
            break;
        case CVHLinkRepairer::Outcome::Failed:
            if (!m_failureReported.contains(track.persistentID)) {
                m_failureReported.insert(track.persistentID);
                failures.append(track.name);
                CVLog::log(result.error);
                if (firstError.isEmpty())
                    firstError = result.error;
            }
            break;
        case CVHLinkRepairer::Outcome::AlreadyLinked:
        case CVHLinkRepairer::Outcome::DriveMissing:
            break;
        }
        if (result.playable()) {
            m_unavailable.remove(track.persistentID);
            m_missingReported.remove(track.persistentID);
            m_failureReported.remove(track.persistentID);
        } else {
            m_unavailable.insert(track.persistentID, result.outcome);
        }
    }
    m_linksMade += made;
    if (made)
        CVLog::log(u"Corvana Helper made %1 link%2"_s.arg(made).arg(plural(made)));

    if (warnings == Warnings::FilesMissing && !newlyMissing.isEmpty()
        && !m_defaults.boolForKey(CVHSettingsKey::TracksUnavailableWhenFilesMissingAlertSupress)) {
        const qsizetype n = newlyMissing.size();
        m_notifier->notify(u"files-missing"_s, u"%1 Track%2 Unavailable"_s.arg(count(n), plural(n)),
            u"The spanned file%1 of %2 cannot be found. Open Corvana to locate %3."_s.arg(
                plural(n), trackNames(newlyMissing), n == 1 ? u"it"_s : u"them"_s));
    }
    if (!failures.isEmpty()) {
        const qsizetype n = failures.size();
        m_notifier->notify(u"link-failed"_s, u"Corvana Helper Could Not Link %1 Track%2"_s.arg(count(n), plural(n)),
            u"%1 cannot be played in iTunes. %2"_s.arg(trackNames(failures), firstError));
    }
    publishStatus();
    return made;
}

bool CVHCorvanaHelper::checkNecessity()
{
    if (!m_tracks.empty()) {
        m_defaults.setObject(true, kHadDependentTracks);
        return true;
    }
    if (!m_historyError.isEmpty())
        return true;
    const bool keepRunning = m_defaults.integerForKey(CVHSettingsKey::AllowedToAlwaysRun) != 0;
    if (m_defaults.boolForKey(kHadDependentTracks)) {
        m_defaults.setObject(false, kHadDependentTracks);
        if (!m_defaults.boolForKey(CVHSettingsKey::NotNecessaryAlertSupress)) {
            const QString summary = u"Corvana Helper Is No Longer Necessary"_s;
            if (keepRunning)
                m_notifier->notify(u"not-necessary"_s, summary,
                    u"All of your tracks are fully spanned. Corvana Helper keeps running, as set in Corvana's "
                    "preferences."_s);
            else
                m_notifier->notifyAndWait(
                    summary, u"All of your tracks are fully spanned. Corvana Helper quits now."_s);
        }
    }
    if (keepRunning)
        return true;
    CVLog::log(u"Corvana Helper quits: no track depends on it."_s);
    Quit();
    return false;
}

void CVHCorvanaHelper::offerLoginItem()
{
    if (m_tracks.empty() || startsAtLogin() || m_defaults.boolForKey(CVHSettingsKey::LoginItemAlertSupress))
        return;
    // Once a session: Corvana starts the helper again after every load.
    QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (runtime.isEmpty())
        runtime = QDir::tempPath();
    QFile mark(runtime + u"/corvana-helper-login-item-offered"_s);
    if (mark.exists() || !mark.open(QIODevice::WriteOnly))
        return;
    const qsizetype n = qsizetype(m_tracks.size());
    m_notifier->notify(u"login-item"_s, u"Start Corvana Helper at Login?"_s,
        u"%1 track%2 in iTunes depend%3 on Corvana Helper to be playable. Start it at login to keep %4 available."_s
            .arg(count(n), plural(n), n == 1 ? u"s"_s : QString(), n == 1 ? u"it"_s : u"them"_s),
        { { u"start-at-login"_s, u"Start at Login"_s }, { u"dont-ask"_s, u"Don't Ask Again"_s } });
}

void CVHCorvanaHelper::onNotificationAction(const QString &kind, const QString &key)
{
    if (kind != u"login-item"_s)
        return;
    if (key == u"start-at-login"_s)
        setStartsAtLogin(true);
    else if (key == u"dont-ask"_s)
        m_defaults.setObject(true, CVHSettingsKey::LoginItemAlertSupress);
}

bool CVHCorvanaHelper::startsAtLogin() const
{
    return CVLoginItems().inLoginItems(QCoreApplication::applicationDirPath() + u'/');
}

void CVHCorvanaHelper::setStartsAtLogin(bool on)
{
    CVLoginItems items;
    if (on && !startsAtLogin())
        items.addToLoginItems(QCoreApplication::applicationFilePath());
    else if (!on)
        items.removeFromLoginItems(QCoreApplication::applicationDirPath() + u'/');
    publishStatus();
}

QString CVHCorvanaHelper::corvanaProgram() const
{
    const QString recorded = m_defaults.objectForKey(kCorvanaApplication).toString();
    if (!recorded.isEmpty() && QFileInfo(recorded).isExecutable())
        return recorded;
    return QStandardPaths::findExecutable(u"corvana"_s);
}

void CVHCorvanaHelper::openCorvana()
{
    const QString program = corvanaProgram();
    if (program.isEmpty() || !QProcess::startDetached(program, {}, QDir::homePath()))
        CVLog::log(u"Corvana Helper cannot start Corvana%1"_s.arg(program.isEmpty() ? QString() : u" at "_s + program));
}

void CVHCorvanaHelper::onMountsAppeared(const QStringList &points)
{
    repairTracks(
        [&points](const CVHDependentTrack &t) {
            return std::any_of(points.cbegin(), points.cend(),
                [&t](const QString &point) { return under(t.spanLocation, point) || under(t.playerLocation, point); });
        },
        Warnings::FilesMissing);
}

void CVHCorvanaHelper::onMountsDisappeared(const QStringList &points)
{
    QStringList lost;
    for (const CVHDependentTrack &track : m_tracks) {
        const bool affected = std::any_of(points.cbegin(), points.cend(), [&track](const QString &point) {
            return under(track.spanLocation, point) || under(track.playerLocation, point);
        });
        if (!affected)
            continue;
        const CVHLinkRepairer::Result result = m_repairer.check(track);
        if (result.playable()) {
            m_unavailable.remove(track.persistentID);
        } else {
            if (!m_unavailable.contains(track.persistentID))
                lost.append(track.name);
            m_unavailable.insert(track.persistentID, result.outcome);
        }
    }
    if (!lost.isEmpty() && !m_defaults.boolForKey(CVHSettingsKey::TracksUnavailableWhenDrivesUnmountAlertSupress)) {
        QStringList drives;
        for (const QString &point : points)
            drives.append(u"“%1”"_s.arg(QFileInfo(point).fileName()));
        const qsizetype n = lost.size();
        m_notifier->notify(u"drive-unmounted"_s, u"%1 Track%2 Unavailable"_s.arg(count(n), plural(n)),
            u"%1 %2 disconnected. iTunes cannot play %3 until %4 connected again."_s.arg(drives.join(u", "_s),
                drives.size() == 1 ? u"was"_s : u"were"_s, n == 1 ? u"its track"_s : u"their %1 tracks"_s.arg(count(n)),
                drives.size() == 1 ? u"it is"_s : u"they are"_s));
    }
    publishStatus();
}

void CVHCorvanaHelper::onFolderChanged(const QString &folder, const QString &name, quint32 mask)
{
    if (folder == m_libraryFolder) {
        if ((mask & IN_OPEN) && kLibraryNames.contains(name))
            onPlayerStarted();
        return;
    }
    if (name.startsWith(kStoreName))
        m_storeSettle.start();
}

void CVHCorvanaHelper::onStoreSettled()
{
    // Our own reading touches the files too: only a change of theirs counts.
    if (storeSignature() == m_storeSignature)
        return;
    reloadHistory();
    repairTracks([](const CVHDependentTrack &) { return true; }, Warnings::FilesMissing);
    checkNecessity();
}

QByteArray CVHCorvanaHelper::storeSignature() const
{
    QByteArray signature;
    for (const QString &suffix : { QString(), u"-wal"_s }) {
        const QFileInfo info(m_storePath + suffix);
        signature += QByteArray::number(info.exists() ? info.size() : -1) + ':'
            + QByteArray::number(info.exists() ? info.lastModified().toMSecsSinceEpoch() : 0) + ';';
    }
    return signature;
}

bool CVHCorvanaHelper::corvanaIsRunning() const
{
    QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    return bus && bus->isServiceRegistered(QString::fromLatin1(CVInstanceLock::BusName)).value();
}

void CVHCorvanaHelper::onPlayerStarted()
{
    // A player reads its library a few times as it starts: one start, one warning. Corvana's
    // own reading is no player starting.
    if (m_playerQuiet.isActive() || corvanaIsRunning())
        return;
    m_playerQuiet.start();
    repairTracks([](const CVHDependentTrack &) { return true; }, Warnings::None);
    const qsizetype n = m_unavailable.size();
    if (n == 0 || m_defaults.boolForKey(CVHSettingsKey::TracksUnavailableWhenITunesLaunchesAlertSupress))
        return;
    m_notifier->notify(u"player-started"_s, u"%1 Track%2 Unavailable in iTunes"_s.arg(count(n), plural(n)),
        n == 1 ? u"Its file is on a drive that is not connected, or cannot be found. Connect the drive, or open "
                 "Corvana to locate the track."_s
               : u"Their files are on drives that are not connected, or cannot be found. Connect the drives, or "
                 "open Corvana to locate the tracks."_s);
}

void CVHCorvanaHelper::publishStatus()
{
    const QString status = statusLine();
    Q_EMIT statusChanged();
    const QString published = status + u'\n' + QString::number(m_linksMade);
    if (published == m_lastStatus)
        return;
    m_lastStatus = published;
    QDBusMessage changed = QDBusMessage::createSignal(QString::fromLatin1(CVHelperApplicationControl::ObjectPath),
        u"org.freedesktop.DBus.Properties"_s, u"PropertiesChanged"_s);
    changed << QString::fromLatin1(CVHelperApplicationControl::Interface)
            << QVariantMap { { u"DependentTracks"_s, dependentTrackCount() }, { u"LinksMade"_s, linksMade() },
                   { u"TracksUnavailable"_s, tracksUnavailable() }, { u"Status"_s, status } }
            << QStringList();
    QDBusConnection::sessionBus().send(changed);
}
