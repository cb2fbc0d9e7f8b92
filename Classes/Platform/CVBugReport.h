#pragma once

#include <QString>
#include <QUrl>

// A bug report as a message in the user's mail client: the address, a subject, and a body with
// what helps to understand the report (versions, the system, the last lines of the log), for the
// user to read and complete before sending. Nothing is sent by the program.
namespace CVBugReport {

QString address();
QString body(const QString &whatHappened = {});
QUrl mailtoUrl(const QString &whatHappened = {});
// Opens the mail client with the report; false when no mail client could be started.
bool open(const QString &whatHappened = {});

} // namespace CVBugReport
