// Writes the library-file link's journal into its library file, as "quit" does; the crash
// tests kill it at random moments.
//   corvana-linktool LIBRARY JOURNAL-FOLDER
#include "Engine/CVLibraryFilePlayerLink.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 3) {
        std::fprintf(stderr, "usage: corvana-linktool LIBRARY JOURNAL-FOLDER\n");
        return 2;
    }
    CVLibraryFilePlayerLink link(args[1], args[2], nullptr);
    QString error;
    if (!link.applyJournal(&error)) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(error));
        return 1;
    }
    return 0;
}
