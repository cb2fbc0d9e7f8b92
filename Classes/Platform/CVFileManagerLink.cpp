#include "Platform/CVFileManagerLink.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

const QString kFileManagerService = u"org.freedesktop.FileManager1"_s;
constexpr int kCallTimeoutMs = 5000;
constexpr int kOpenerTimeoutMs = 30000;

bool callFileManager(const QString &method, const QStringList &uris)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface() || !bus.interface()->isServiceRegistered(kFileManagerService).value())
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(
        kFileManagerService, u"/org/freedesktop/FileManager1"_s, kFileManagerService, method);
    call << uris << QString();
    const QDBusMessage reply = bus.call(call, QDBus::Block, kCallTimeoutMs);
    return reply.type() == QDBusMessage::ReplyMessage;
}

// The desktop entry whose file name or Name is the given name.
QString desktopEntryNamed(const QString &name)
{
    for (const QString &folder : QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation)) {
        QDirIterator it(folder, { u"*.desktop"_s }, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString file = it.next();
            if (QFileInfo(file).completeBaseName().compare(name, Qt::CaseInsensitive) == 0)
                return file;
            QSettings entry(file, QSettings::IniFormat);
            if (entry.value(u"Desktop Entry/Name"_s).toString().compare(name, Qt::CaseInsensitive) == 0)
                return file;
        }
    }
    return {};
}

} // namespace

CVFileManagerLink::~CVFileManagerLink() = default;

CVFileManagerLink *CVFileManagerLink::shared()
{
    static CVFileManagerLink link;
    return &link;
}

bool CVFileManagerLink::runOpener(const QStringList &arguments) const
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(m_opener, arguments);
    if (!process.waitForFinished(kOpenerTimeoutMs))
        return false;
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

bool CVFileManagerLink::selectFile(const QString &path)
{
    if (callFileManager(u"ShowItems"_s, { QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded) }))
        return true;
    const QFileInfo info(path);
    return runOpener({ info.isDir() ? path : info.absolutePath() });
}

bool CVFileManagerLink::openPath(const QString &path)
{
    return runOpener({ path });
}

bool CVFileManagerLink::launchApplication(const QString &name)
{
    const QString program = QStandardPaths::findExecutable(name);
    if (!program.isEmpty())
        return QProcess::startDetached(program, {});
    const QString entry = desktopEntryNamed(name);
    if (entry.isEmpty())
        return false;
    const QString gio = QStandardPaths::findExecutable(u"gio"_s);
    if (!gio.isEmpty())
        return QProcess::startDetached(gio, { u"launch"_s, entry });
    return QProcess::startDetached(u"gtk-launch"_s, { QFileInfo(entry).completeBaseName() });
}

bool CVFileManagerLink::openTrash()
{
    if (callFileManager(u"ShowFolders"_s, { u"trash:///"_s }))
        return true;
    const QString gio = QStandardPaths::findExecutable(u"gio"_s);
    if (!gio.isEmpty()) {
        QProcess process;
        process.setStandardOutputFile(QProcess::nullDevice());
        process.setStandardErrorFile(QProcess::nullDevice());
        process.start(gio, { u"open"_s, u"trash:///"_s });
        if (process.waitForFinished(kOpenerTimeoutMs) && process.exitStatus() == QProcess::NormalExit
            && process.exitCode() == 0)
            return true;
    }
    const QString files = CVTrash::homeTrashFolder() + u"/files"_s;
    QDir().mkpath(files);
    return runOpener({ files });
}

CVTrash::Result CVFileManagerLink::moveToTrash(const QString &path)
{
    return CVTrash::moveToTrash(path);
}

bool CVFileManagerLink::isTrashEmpty()
{
    return CVTrash::isEmpty();
}

int CVFileManagerLink::emptyTrash(QStringList *errors)
{
    return CVTrash::emptyTrash(errors);
}
