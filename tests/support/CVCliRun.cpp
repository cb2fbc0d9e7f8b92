#include "CVCliRun.h"

#include "CVSyscallTrace.h"

#include <QProcess>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

QStringList withAllowRoot(QStringList arguments)
{
    static const QStringList runs { u"span"_s, u"restore"_s, u"update-dependent"_s };
    if (std::any_of(arguments.cbegin(), arguments.cend(), [](const QString &a) { return runs.contains(a); })
        && !arguments.contains(u"--allow-root"_s))
        arguments.append(u"--allow-root"_s);
    return arguments;
}

void prepare(QProcess &process, const QString &faults)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"TZ"_s, u"UTC"_s);
    if (!faults.isEmpty())
        env.insert(u"CORVANA_FAULT_INJECTION"_s, faults);
    process.setProcessEnvironment(env);
}

} // namespace

CVCliRun runCli(const QStringList &arguments, const QString &faults, const QString &traceFile)
{
    QProcess process;
    prepare(process, faults);
    const QStringList all = withAllowRoot(arguments);
    if (traceFile.isEmpty())
        process.start(QStringLiteral(CORVANA_CLI), all);
    else
        process.start(u"strace"_s, CVSyscallTrace::command(traceFile, QStringLiteral(CORVANA_CLI), all));
    CVCliRun run;
    run.killed = !process.waitForFinished(300000) || process.exitStatus() != QProcess::NormalExit;
    if (run.killed && process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
    }
    run.status = run.killed ? -1 : process.exitCode();
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}

void startCli(QProcess &process, const QStringList &arguments, const QString &faults)
{
    prepare(process, faults);
    process.start(QStringLiteral(CORVANA_CLI), withAllowRoot(arguments));
}
