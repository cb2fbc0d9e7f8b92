#include "CVCommandLineTool.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Corvana"));
    QCoreApplication::setOrganizationName(QStringLiteral("Corvana"));
    auto *tool = new CVCommandLineTool; // never freed: see below
    const int status = tool->run(QCoreApplication::arguments());
    // A loaded library is hundreds of thousands of allocations: let the system take them back at once.
    std::fflush(stdout);
    std::fflush(stderr);
    std::_Exit(status);
}
