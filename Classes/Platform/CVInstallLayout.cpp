#include "Platform/CVInstallLayout.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

#ifndef CORVANA_INSTALL_LIBEXECDIR
#define CORVANA_INSTALL_LIBEXECDIR "/usr/libexec"
#endif
#ifndef CORVANA_INSTALL_DATADIR
#define CORVANA_INSTALL_DATADIR "/usr/share"
#endif

namespace {

// The folder above the program's own: the prefix, or the build tree's top. The build tree puts
// its programs one folder deeper (build/Classes, build/CommandLine, build/tests).
QString besideProgram(const QString &relative)
{
    if (!QCoreApplication::instance())
        return {};
    const QDir program(QCoreApplication::applicationDirPath());
    for (const QString &up : { u"/.."_s, u"/../.."_s }) {
        const QString candidate = QDir::cleanPath(program.path() + up + u'/' + relative);
        if (QFileInfo(candidate).isDir())
            return candidate;
    }
    return {};
}

} // namespace

QString CVInstallLayout::libexecFolder()
{
    const QString found = besideProgram(u"libexec/corvana"_s);
    return found.isEmpty() ? QStringLiteral(CORVANA_INSTALL_LIBEXECDIR "/corvana") : found;
}

QString CVInstallLayout::dataFolder()
{
    const QString found = besideProgram(u"share/corvana"_s);
    return found.isEmpty() ? QStringLiteral(CORVANA_INSTALL_DATADIR "/corvana") : found;
}

QString CVInstallLayout::dataFile(const QString &relativePath)
{
    const QString path = dataFolder() + u'/' + relativePath;
    return QFileInfo::exists(path) ? path : QString();
}

QString CVInstallLayout::supportFolder()
{
    const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (data.isEmpty())
        return QDir::tempPath() + u"/Corvana"_s;
    return data + u"/Corvana"_s;
}
