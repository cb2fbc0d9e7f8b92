#pragma once

#include <QString>
#include <QStringList>

#include <optional>

class CVAuthorization;

// Running a command-line tool to completion. Meant for tools that print a line or two: the
// output is read after the tool has exited.
namespace CVOneLineTasks {

inline constexpr auto ErrorDomain = "org.corvana.Corvana.OneLineTasks";

// Output and errors go to the null device.
void launchPathAndWaitUntilExit(const QString &path, const QStringList &arguments);
// The tool's standard output as UTF-8 text; errors go to the null device.
QString stringByLaunchingPathAndWaitingUntilExit(const QString &path, const QStringList &arguments);
// With administrator rights; nothing on failure, with the error set to "<domain> <code>: text".
// The tool's exit status is in exitStatus when given.
std::optional<QString> stringByLaunchingPath(const QString &path, const QStringList &arguments,
    CVAuthorization &authorization, QString *error, int *exitStatus = nullptr);

} // namespace CVOneLineTasks
