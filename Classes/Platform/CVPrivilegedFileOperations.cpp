#include "Platform/CVPrivilegedFileOperations.h"

#include "Platform/CVAuthorization.h"
#include "Platform/CVLog.h"
#include "Platform/CVOneLineTasks.h"

#include <QFile>
#include <QFileInfo>

#include <memory>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

std::unique_ptr<CVAuthorization> shared;

bool exists(const QString &path)
{
    struct stat info { };
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0;
}

// Runs one tool with rights; yes exactly when it ran and exited with 0.
bool runTool(const QString &tool, const QStringList &arguments, QString *error)
{
    int status = 0;
    const std::optional<QString> output
        = CVOneLineTasks::stringByLaunchingPath(tool, arguments, *shared, error, &status);
    if (!output)
        return false;
    if (status != 0) {
        if (error)
            *error = u"%1 %2: %3 failed"_s.arg(
                QLatin1StringView(CVOneLineTasks::ErrorDomain), QString::number(status), tool);
        return false;
    }
    return true;
}

bool moveOrCopy(
    const QString &tool, const QString &option, const QString &source, const QString &destination, QString *error)
{
    if (!CVPrivilegedFileOperations::getAuthorization())
        return false;
    if (!exists(source) || exists(destination))
        return false;
    const QString parent = QFileInfo(destination).absolutePath();
    if (!exists(parent) && !runTool(u"/bin/mkdir"_s, { u"-p"_s, parent }, error))
        return false;
    return runTool(tool, { option, source, destination }, error);
}

} // namespace

bool CVPrivilegedFileOperations::getAuthorization()
{
    if (shared && shared->isValid())
        return true;
    auto authorization = std::make_unique<CVAuthorization>();
    QString error;
    if (!authorization->obtain(&error)) {
        CVLog::log(u"SFAuthorization error: %1"_s.arg(error));
        shared.reset();
        return false;
    }
    shared = std::move(authorization);
    return true;
}

CVAuthorization *CVPrivilegedFileOperations::sharedAuthorization()
{
    return shared.get();
}

void CVPrivilegedFileOperations::dropAuthorization()
{
    shared.reset();
}

bool CVPrivilegedFileOperations::authorizedMoveItemAtPath(
    const QString &source, const QString &destination, QString *error)
{
    return moveOrCopy(u"/bin/mv"_s, u"-n"_s, source, destination, error);
}

bool CVPrivilegedFileOperations::authorizedCopyItemAtPath(
    const QString &source, const QString &destination, QString *error)
{
    return moveOrCopy(u"/bin/cp"_s, u"-R"_s, source, destination, error);
}

bool CVPrivilegedFileOperations::authorizedRemoveItemAtPath(const QString &path, QString *error)
{
    // Removing what is already gone succeeds without asking the user.
    if (!exists(path))
        return true;
    if (!getAuthorization())
        return false;
    if (!exists(path))
        return false;
    return runTool(u"/bin/rm"_s, { u"-d"_s, u"-R"_s, path }, error);
}
