#include "Platform/CVAuthorization.h"

#include "Platform/CVFullIO.h"
#include "Platform/CVInstallLayout.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QStandardPaths>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

using namespace Qt::StringLiterals;

extern char **environ;

namespace {

QMutex launcherMutex;
QStringList configuredLauncher;
QString configuredInstallFolder;
QString configuredPackagedHelper;

constexpr char kGreeting[] = "CORVANA-RUNNER 1\n";

void appendNumber(QByteArray &out, quint32 value)
{
    unsigned char bytes[4];
    CVFullIO::putNumber(bytes, value);
    out.append(reinterpret_cast<const char *>(bytes), 4);
}

} // namespace

CVAuthorization::~CVAuthorization()
{
    close();
}

void CVAuthorization::setLauncher(const QStringList &command)
{
    QMutexLocker lock(&launcherMutex);
    configuredLauncher = command;
}

QStringList CVAuthorization::launcher()
{
    QMutexLocker lock(&launcherMutex);
    if (!configuredLauncher.isEmpty())
        return configuredLauncher;
    return { u"/usr/bin/pkexec"_s, defaultRunnerPath() };
}

void CVAuthorization::setScope(const QString &installFolder, const QString &packagedHelper)
{
    QMutexLocker lock(&launcherMutex);
    configuredInstallFolder = installFolder;
    configuredPackagedHelper = packagedHelper;
}

QString CVAuthorization::installFolder()
{
    QMutexLocker lock(&launcherMutex);
    if (!configuredInstallFolder.isEmpty())
        return configuredInstallFolder;
    const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    return (data.isEmpty() ? QDir::tempPath() : data) + u"/Corvana/Corvana Helper"_s;
}

QString CVAuthorization::packagedHelper()
{
    QMutexLocker lock(&launcherMutex);
    if (!configuredPackagedHelper.isEmpty())
        return configuredPackagedHelper;
    return QFileInfo(defaultRunnerPath()).absolutePath() + u"/Corvana Helper"_s;
}

QString CVAuthorization::defaultRunnerPath()
{
    return CVInstallLayout::libexecFolder() + u"/corvana-privileged-runner"_s;
}

bool CVAuthorization::obtain(QString *error)
{
    if (isValid())
        return true;
    const QStringList command = launcher() + QStringList { installFolder(), packagedHelper() };
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
        if (error)
            *error = QString::fromLocal8Bit(strerror(errno));
        return false;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    std::vector<QByteArray> encoded;
    for (const QString &part : command)
        encoded.push_back(QFile::encodeName(part));
    std::vector<char *> argv;
    for (QByteArray &part : encoded)
        argv.push_back(part.data());
    argv.push_back(nullptr);
    pid_t child = 0;
    const int spawned = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    if (spawned != 0) {
        ::close(fds[0]);
        if (error)
            *error = u"%1 could not be started: %2"_s.arg(command.value(0), QString::fromLocal8Bit(strerror(spawned)));
        return false;
    }
    char greeting[sizeof kGreeting - 1];
    if (!CVFullIO::readFully(fds[0], greeting, sizeof greeting)
        || std::memcmp(greeting, kGreeting, sizeof greeting) != 0) {
        // pkexec exits with 126 when the user dismissed the request, 127 when not authorized.
        ::close(fds[0]);
        int status = 0;
        while (::waitpid(child, &status, 0) < 0 && errno == EINTR) { }
        if (error) {
            const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            *error = code == 126 ? u"The request for administrator rights was dismissed."_s
                : code == 2
                ? u"The privileged runner refused to act for “%1”: it acts only in a folder "
                  "named “Corvana Helper” below a folder of yours, reached without links."_s.arg(installFolder())
                : u"Administrator rights were not granted (%1 exited with status %2)."_s.arg(
                    command.value(0), QString::number(code));
        }
        return false;
    }
    m_child = child;
    m_toRunner = fds[0];
    m_fromRunner = fds[0];
    return true;
}

bool CVAuthorization::execute(const QStringList &fields, int *status, QByteArray *output, QString *error)
{
    if (!isValid()) {
        if (error)
            *error = u"No administrator rights were obtained."_s;
        return false;
    }
    QByteArray request;
    appendNumber(request, quint32(fields.size()));
    for (const QString &field : fields) {
        const QByteArray bytes = QFile::encodeName(field);
        appendNumber(request, quint32(bytes.size()));
        request += bytes;
    }
    quint32 code = 0;
    quint32 length = 0;
    QByteArray text;
    bool ok = CVFullIO::writeFully(m_toRunner, request.constData(), size_t(request.size()), true)
        && CVFullIO::readNumber(m_fromRunner, code) && CVFullIO::readNumber(m_fromRunner, length);
    if (ok) {
        text.resize(qsizetype(length));
        ok = length == 0 || CVFullIO::readFully(m_fromRunner, text.data(), length);
    }
    if (!ok) {
        close();
        if (error)
            *error = u"The privileged runner ended unexpectedly."_s;
        return false;
    }
    if (status)
        *status = int(code);
    if (output)
        *output = text;
    return true;
}

void CVAuthorization::close()
{
    if (m_toRunner >= 0)
        ::close(m_toRunner); // the runner ends when its input ends
    if (m_child > 0) {
        int status = 0;
        while (::waitpid(m_child, &status, 0) < 0 && errno == EINTR) { }
    }
    m_child = -1;
    m_toRunner = -1;
    m_fromRunner = -1;
}
