// The library load in-process, split into its parts: the read (parse, records, sort
// strings) and producing every display text of every track.
#include "Library/CVLibraryManager.h"
#include "Platform/CVSettings.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: bench_load FILE\n");
        return 2;
    }
    QTemporaryDir dir;
    CVSettings settings(dir.filePath(QStringLiteral("settings.conf")));
    CVLibraryManager library(&settings);
    library.setLibraryFilePath(QString::fromLocal8Bit(argv[1]));
    QElapsedTimer timer;
    timer.start();
    if (library.loadiTunesXMLDatabase() != CVLibraryManager::LoadResult::Loaded)
        return 1;
    const double read = double(timer.nsecsElapsed()) / 1e9;

    timer.restart();
    qsizetype characters = 0;
    for (const CVTrack *t : library.allTracks())
        for (CVAttr a : { CVAttr::DisplaySize, CVAttr::DisplayTime, CVAttr::DisplaySampleRate, CVAttr::DisplayBitRate,
                 CVAttr::DisplayDiscNumber, CVAttr::Season, CVAttr::DateAdded, CVAttr::DateModified,
                 CVAttr::ReleaseDate, CVAttr::LastPlayed, CVAttr::LastSkipped })
            characters += t->displayText(a).size();
    const double display = double(timer.nsecsElapsed()) / 1e9;
    std::printf("{\"tracks\": %zu, \"read\": %.3f, \"displayTexts\": %.3f, \"characters\": %lld}\n",
        library.allTracks().size(), read, display, static_cast<long long>(characters));
    return 0;
}
