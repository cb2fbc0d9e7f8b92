#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

class QProcess;

// One run of the command-line tool, as a user makes it, to its end.
struct CVCliRun {
    int status = -1; // -1 when it was killed or did not end
    bool killed = false;
    QByteArray out;
    QByteArray err;
};

// Runs of span, restore and update-dependent get --allow-root: test machines often run as
// root, and the refusal of root has a test of its own. Times are shown in UTC. `faults` is the
// run's CORVANA_FAULT_INJECTION; with a trace file, the tool runs under strace, its calls written
// there.
CVCliRun runCli(const QStringList &arguments, const QString &faults = {}, const QString &traceFile = {});
// Starts the tool without waiting, for the tests that stop it part-way.
void startCli(QProcess &process, const QStringList &arguments, const QString &faults = {});
