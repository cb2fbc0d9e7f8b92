#pragma once

#include <QString>
#include <QStringList>

#include <functional>

// The program's diagnostics: single fixed lines, to standard error and the system log
// (ident "Corvana"). There are no levels.
namespace CVLog {

void log(const QString &line);
// Tests and front ends can take the lines instead; an empty function restores the default.
void setSink(std::function<void(const QString &)> sink);
// The last lines written by this process (at most 50), oldest first: what a bug report carries.
QStringList recentLines();

} // namespace CVLog
