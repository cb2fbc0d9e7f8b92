#pragma once

#include <QString>
#include <QStringList>

#include <sys/types.h>

// Administrator rights for this process: one privileged runner started through pkexec on first
// need and kept until the process ends, so the user is asked once. The runner executes only
// /bin/mv, /bin/cp, /bin/rm and /bin/mkdir with argument lists.
class CVAuthorization {
public:
    CVAuthorization() = default;
    ~CVAuthorization();
    CVAuthorization(const CVAuthorization &) = delete;
    CVAuthorization &operator=(const CVAuthorization &) = delete;

    // The command that starts the runner with rights; by default pkexec and the runner installed
    // beside the program. Tests start the runner directly.
    static void setLauncher(const QStringList &command);
    static QStringList launcher();
    static QString defaultRunnerPath();
    // Where the runner may act: the helper's install folder (everything it writes lies in it),
    // and the packaged helper it copies from. Passed to the runner when it starts.
    static void setScope(const QString &installFolder, const QString &packagedHelper);
    static QString installFolder();
    static QString packagedHelper();

    // Starts the runner (asking the user) and waits for its greeting.
    bool obtain(QString *error);
    bool isValid() const { return m_child > 0; }

    // Runs one tool through the runner; false with an error when the runner is gone.
    bool execute(const QStringList &fields, int *status, QByteArray *output, QString *error);

private:
    void close();

    pid_t m_child = -1;
    int m_toRunner = -1;
    int m_fromRunner = -1;
};
