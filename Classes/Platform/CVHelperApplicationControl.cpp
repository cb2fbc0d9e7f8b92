#include "Platform/CVHelperApplicationControl.h"

#include "Platform/CVAuthorization.h"
#include "Platform/CVHUserDefaults.h"
#include "Platform/CVInstallLayout.h"
#include "Platform/CVLog.h"
#include "Platform/CVLoginItems.h"
#include "Platform/CVPresenter.h"
#include "Platform/CVPrivilegedFileOperations.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QUuid>

#include <cerrno>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

using namespace Qt::StringLiterals;

namespace {

constexpr int kQuitTimeoutMs = 5000;

QString busName()
{
    return QString::fromLatin1(CVHelperApplicationControl::BusName);
}

QByteArray readBytes(const QString &path, bool *ok)
{
    QFile file(path);
    *ok = file.open(QIODevice::ReadOnly);
    return *ok ? file.readAll() : QByteArray();
}

bool pathExists(const QString &path)
{
    struct stat info { };
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0;
}

// Folders, plain files (with their permissions) and symbolic links; anything else is refused.
bool copyTree(const QString &source, const QString &destination, QString *error)
{
    struct stat info { };
    if (::lstat(QFile::encodeName(source).constData(), &info) != 0) {
        *error = u"%1 cannot be read"_s.arg(source);
        return false;
    }
    if (S_ISLNK(info.st_mode)) {
        if (!QFile::link(QFile::symLinkTarget(source), destination)) {
            *error = u"Cannot make the link %1"_s.arg(destination);
            return false;
        }
        return true;
    }
    if (S_ISREG(info.st_mode)) {
        QFile file(source);
        if (!file.copy(destination)) {
            *error = u"Cannot copy %1 to %2: %3"_s.arg(source, destination, file.errorString());
            return false;
        }
        return true;
    }
    if (!S_ISDIR(info.st_mode)) {
        *error = u"%1 is neither a file nor a folder"_s.arg(source);
        return false;
    }
    if (!QDir().mkdir(destination)) {
        *error = u"Cannot create %1"_s.arg(destination);
        return false;
    }
    const QDir folder(source);
    for (const QString &name : folder.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot))
        if (!copyTree(folder.filePath(name), destination + u'/' + name, error))
            return false;
    return true;
}

bool removeInstalledCopy(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists() && !info.isSymLink())
        return true;
    if (info.isDir() && !info.isSymLink())
        return QDir(path).removeRecursively();
    return QFile::remove(path);
}

} // namespace

CVHelperApplicationControl::CVHelperApplicationControl()
    : m_packagedPath(defaultPackagedHelperPath())
{
}

QString CVHelperApplicationControl::defaultPackagedHelperPath()
{
    const QString bundle = QString::fromLatin1(BundleName);
    const QString overridden = qEnvironmentVariable(PackagedHelperVariable);
    if (!overridden.isEmpty())
        return overridden;
    return CVInstallLayout::libexecFolder() + u'/' + bundle;
}

bool CVHelperApplicationControl::isPackagedHelperPresent() const
{
    return !m_packagedPath.isEmpty()
        && QFileInfo(m_packagedPath + u'/' + QLatin1StringView(ExecutableName)).isExecutable()
        && QFileInfo(m_packagedPath + u'/' + QLatin1StringView(InfoFileName)).isFile();
}

QString CVHelperApplicationControl::installedHelperPath()
{
    return CVInstallLayout::supportFolder() + u'/' + QLatin1StringView(BundleName);
}

QString CVHelperApplicationControl::installedHelperExecutable()
{
    return installedHelperPath() + u'/' + QLatin1StringView(ExecutableName);
}

bool CVHelperApplicationControl::isInstalledHelperCurrent() const
{
    bool packagedRead = false, installedRead = false;
    const QByteArray packaged = readBytes(m_packagedPath + u'/' + QLatin1StringView(InfoFileName), &packagedRead);
    const QByteArray installed
        = readBytes(installedHelperPath() + u'/' + QLatin1StringView(InfoFileName), &installedRead);
    return packagedRead && installedRead && packaged == installed;
}

bool CVHelperApplicationControl::copyPackagedHelper(const QString &destination, QString *error) const
{
    // Copied beside its place and renamed into it, so that an interrupted copy never leaves a
    // folder whose metadata says it is complete.
    const QString partial = QFileInfo(destination).absolutePath() + u"/.Corvana Helper-"_s
        + QUuid::createUuid().toString(QUuid::Id128).left(8);
    if (!copyTree(m_packagedPath, partial, error)) {
        QDir(partial).removeRecursively();
        return false;
    }
    if (::rename(QFile::encodeName(partial).constData(), QFile::encodeName(destination).constData()) != 0) {
        *error = u"Cannot move %1 to %2: %3"_s.arg(partial, destination, QString::fromLocal8Bit(strerror(errno)));
        QDir(partial).removeRecursively();
        return false;
    }
    return true;
}

CVHelperApplicationControl::InstallResult CVHelperApplicationControl::installOrUpdateCorvanaHelper(
    CVPresenter *presenter, const std::function<void(const QString &status)> &showStatus)
{
    m_reportBugRequested = false;
    if (!isPackagedHelperPresent()) {
        CVAlert alert;
        alert.title = u"\nCorvana Helper not in bundle"_s;
        alert.text = u"Corvana cannot run without Corvana Helper in its application bundle."_s;
        alert.defaultButton = u"Quit"_s;
        alert.style = CVAlert::Style::Critical;
        if (presenter)
            presenter->runAlertPanel(alert);
        return InstallResult::QuitWithoutSaving;
    }
    if (isInstalledHelperCurrent())
        return InstallResult::UpToDate;

    const QString installed = installedHelperPath();
    const bool updating = pathExists(installed);
    const QString verb = updating ? u"Updating"_s : u"Installing"_s;
    CVLog::log(u"%1 Corvana Helper..."_s.arg(verb));
    if (showStatus)
        showStatus(u"%1 Corvana Helper"_s.arg(verb));

    tellCorvanaHelperToQuit();
    const QString support = CVInstallLayout::supportFolder();
    bool prepared = QFileInfo(support).isDir() ? removeInstalledCopy(installed) : QDir().mkpath(support);
    QString error;
    if (prepared && copyPackagedHelper(installed, &error))
        return updating ? InstallResult::Updated : InstallResult::Installed;
    if (!error.isEmpty())
        CVLog::log(error);

    CVAlert ask;
    ask.title = u"Corvana Helper needs to be %1."_s.arg(updating ? u"updated"_s : u"installed"_s);
    ask.text = u"Corvana Helper will notify you when it launches (after tracks are spanned) to create symbolic "
               "links for dependently spanned tracks to be available in iTunes.\nCorvana Helper can also notify "
               "you if tracks are unavailable for any reason.\n\nFor more info about Corvana Helper, read Corvana "
               "Help.\n\nClick \"Authenticate\" to install Corvana Helper with administrator privileges."_s;
    ask.defaultButton = u"Authenticate"_s;
    ask.alternateButton = u"Don't %1 Corvana Helper & Quit"_s.arg(updating ? u"Update"_s : u"Install"_s);
    ask.style = CVAlert::Style::Informational;
    if (!presenter || presenter->runAlertPanel(ask) != CVPresenter::DefaultReturn)
        return InstallResult::QuitWithoutSaving;

    QString privilegedError;
    // The runner acts only in the install folder, and copies only from the packaged helper.
    CVAuthorization::setScope(installed, m_packagedPath);
    if (CVPrivilegedFileOperations::authorizedRemoveItemAtPath(installed, &privilegedError)
        && CVPrivilegedFileOperations::authorizedCopyItemAtPath(m_packagedPath, installed, &privilegedError))
        return updating ? InstallResult::Updated : InstallResult::Installed;
    if (!privilegedError.isEmpty())
        CVLog::log(privilegedError);

    CVAlert failed;
    failed.title = u"Corvana Helper %1 failed."_s.arg(updating ? u"update"_s : u"installation"_s);
    failed.text
        = u"Corvana cannot be used without Corvana Helper.\n\nSorry for this inconvenience, please report a bug."_s;
    failed.defaultButton = u"Quit & Report a Bug"_s;
    failed.style = CVAlert::Style::Critical;
    presenter->runAlertPanel(failed);
    m_reportBugRequested = true;
    return InstallResult::QuitWithoutSaving;
}

void CVHelperApplicationControl::launchCorvanaHelper()
{
    if (!QFileInfo(installedHelperExecutable()).isExecutable())
        return;
    // A Corvana with a window is the one the helper's "Open Corvana" starts.
    if (QCoreApplication::instance() && QCoreApplication::instance()->inherits("QGuiApplication"))
        CVHUserDefaults::standardUserDefaults().setObject(
            QCoreApplication::applicationFilePath(), CVHSettingsKey::CorvanaApplication);
    QString error;
    if (!startInstalledHelper(&error))
        CVLog::log(error);
}

bool CVHelperApplicationControl::startInstalledHelper(QString *error, qint64 *pid)
{
    const QString program = installedHelperExecutable();
    if (!QFileInfo(program).isExecutable()) {
        if (error)
            *error = u"Corvana Helper is not installed at %1"_s.arg(installedHelperPath());
        return false;
    }
    // Spawned without a copy of this process (forking a program that holds a large library
    // costs tens of milliseconds), in a session of its own: it outlives this program, and its
    // lines go to the system log, not to our terminal.
    const QByteArray path = QFile::encodeName(program);
    const QByteArray home = QFile::encodeName(QDir::homePath());
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addchdir_np(&actions, home.constData());
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK);
    char *argv[] = { const_cast<char *>(path.constData()), nullptr };
    pid_t child = 0;
    const int failed = posix_spawn(&child, path.constData(), &actions, &attributes, argv, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) {
        if (error)
            *error = u"Corvana Helper could not be started: %1"_s.arg(QString::fromLocal8Bit(strerror(failed)));
        return false;
    }
    // Reaped when it ends, so that it never lingers as a zombie of this program.
    std::thread([child] {
        int status = 0;
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) { }
    }).detach();
    if (pid)
        *pid = child;
    return true;
}

bool CVHelperApplicationControl::isCorvanaHelperRunning()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface() && bus.interface()->isServiceRegistered(busName()).value();
}

void CVHelperApplicationControl::tellCorvanaHelperToQuit()
{
    if (!isCorvanaHelperRunning())
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    const QDBusMessage quit = QDBusMessage::createMethodCall(
        busName(), QString::fromLatin1(ObjectPath), QString::fromLatin1(Interface), u"Quit"_s);
    bus.call(quit, QDBus::Block, kQuitTimeoutMs);
    const QDeadlineTimer deadline(kQuitTimeoutMs);
    while (bus.interface()->isServiceRegistered(busName()).value() && !deadline.hasExpired())
        QThread::msleep(10);
}

std::optional<QVariantMap> CVHelperApplicationControl::corvanaHelperStatus()
{
    if (!isCorvanaHelperRunning())
        return std::nullopt;
    QDBusMessage get = QDBusMessage::createMethodCall(
        busName(), QString::fromLatin1(ObjectPath), u"org.freedesktop.DBus.Properties"_s, u"GetAll"_s);
    get << QString::fromLatin1(Interface);
    const QDBusReply<QVariantMap> reply = QDBusConnection::sessionBus().call(get, QDBus::Block, kQuitTimeoutMs);
    if (!reply.isValid())
        return std::nullopt;
    return reply.value();
}

std::optional<uint> CVHelperApplicationControl::repairCorvanaHelperLinksNow()
{
    if (!isCorvanaHelperRunning())
        return std::nullopt;
    const QDBusMessage repair = QDBusMessage::createMethodCall(
        busName(), QString::fromLatin1(ObjectPath), QString::fromLatin1(Interface), u"RepairLinksNow"_s);
    // A large history takes a moment to read.
    const QDBusReply<uint> reply = QDBusConnection::sessionBus().call(repair, QDBus::Block, 60000);
    if (!reply.isValid())
        return std::nullopt;
    return reply.value();
}

bool CVHelperApplicationControl::inLoginItems() const
{
    return CVLoginItems().inLoginItems(installedHelperPath() + u'/');
}

bool CVHelperApplicationControl::addToLoginItems()
{
    return CVLoginItems().addToLoginItems(installedHelperExecutable());
}

bool CVHelperApplicationControl::removeFromLoginItems()
{
    return CVLoginItems().removeFromLoginItems(installedHelperPath() + u'/');
}

void CVHelperApplicationControl::setCorvanaHelperLoginItem(int segment)
{
    if (segment == 1) {
        if (!inLoginItems())
            addToLoginItems();
    } else if (inLoginItems()) {
        removeFromLoginItems();
    }
}
