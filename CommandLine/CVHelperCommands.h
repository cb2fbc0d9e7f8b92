#pragma once

#include <QStringList>

// corvana-cli helper status | install | launch | quit | repair | login-item on|off: the main
// program's operations on Corvana Helper, for use without a window.
class CVHelperCommands {
public:
    static QString usage();
    int run(const QStringList &arguments);

private:
    int status();
    int install();
    int launch();
    int quit();
    int repair();
    int loginItem(const QString &state);
};
