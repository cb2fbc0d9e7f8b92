#include "Platform/CVOneLineTasks.h"

#include "Platform/CVAuthorization.h"

#include <QProcess>

using namespace Qt::StringLiterals;

namespace {

// A runner refuses what it does not allow with this status.
constexpr int kRefused = 255;

// Runs the tool to its end; standard output is kept only when asked for.
QByteArray runToEnd(const QString &path, const QStringList &arguments, bool keepOutput)
{
    QProcess task;
    task.setProgram(path);
    task.setArguments(arguments);
    task.setStandardInputFile(QProcess::nullDevice());
    if (!keepOutput)
        task.setStandardOutputFile(QProcess::nullDevice());
    task.setStandardErrorFile(QProcess::nullDevice());
    task.start();
    task.waitForFinished(-1);
    return keepOutput ? task.readAllStandardOutput() : QByteArray();
}

} // namespace

void CVOneLineTasks::launchPathAndWaitUntilExit(const QString &path, const QStringList &arguments)
{
    runToEnd(path, arguments, false);
}

QString CVOneLineTasks::stringByLaunchingPathAndWaitingUntilExit(const QString &path, const QStringList &arguments)
{
    return QString::fromUtf8(runToEnd(path, arguments, true));
}

std::optional<QString> CVOneLineTasks::stringByLaunchingPath(
    const QString &path, const QStringList &arguments, CVAuthorization &authorization, QString *error, int *exitStatus)
{
    int status = 0;
    QByteArray output;
    QString failure;
    if (!authorization.execute(QStringList { path } + arguments, &status, &output, &failure)) {
        if (error)
            *error = u"%1 %2: %3"_s.arg(QLatin1StringView(ErrorDomain), QString::number(-1), failure);
        return std::nullopt;
    }
    if (exitStatus)
        *exitStatus = status;
    if (status == kRefused) {
        if (error)
            *error = u"%1 %2: %3 is not allowed"_s.arg(QLatin1StringView(ErrorDomain), QString::number(status), path);
        return std::nullopt;
    }
    if (error)
        error->clear();
    return QString::fromUtf8(output);
}
