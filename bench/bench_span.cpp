// A whole span run against cp -r of the same files: a library of N tracks with media files of
// about B bytes each is generated under WORK, spanned (copy, player update through the library
// file, verification, originals to the Trash) to DEST, and the same media folder is copied with
// cp -r to DEST as well. Prints both times, the throughput ratio and the time per track.
//
//   bench_span --work DIR --dest DIR --tracks N --bytes B
#include "CVLibraryGenerator.h"
#include "CVSpanSession.h"
#include "Engine/CVLibraryFilePlayerLink.h"
#include "Library/CVSpanHistory.h"
#include "Platform/CVLog.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

double runCommand(const QString &program, const QStringList &args)
{
    QElapsedTimer clock;
    clock.start();
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(program, args);
    process.waitForFinished(-1);
    return double(clock.nsecsElapsed()) / 1e9;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption workOption(u"work"_s, u"Folder for the home and the media."_s, u"DIR"_s);
    const QCommandLineOption destOption(u"dest"_s, u"Folder (on any drive) to span to."_s, u"DIR"_s);
    const QCommandLineOption tracksOption(u"tracks"_s, u"Tracks."_s, u"N"_s, u"400"_s);
    const QCommandLineOption bytesOption(u"bytes"_s, u"Bytes per media file."_s, u"B"_s, u"5000000"_s);
    const QCommandLineOption reflinkOption(u"reflink"_s, u"Compare with cp -r --reflink=auto."_s);
    parser.addOptions({ workOption, destOption, tracksOption, bytesOption, reflinkOption });
    parser.process(app);
    const QString work = QDir(parser.value(workOption)).absolutePath();
    const QString dest = QDir(parser.value(destOption)).absolutePath();
    if (work.isEmpty() || dest.isEmpty()) {
        std::fprintf(stderr, "usage: bench_span --work DIR --dest DIR [--tracks N] [--bytes B]\n");
        return 2;
    }
    for (const auto &[name, sub] : { std::pair { "HOME", "" }, std::pair { "XDG_CONFIG_HOME", "/.config" },
             std::pair { "XDG_DATA_HOME", "/.local/share" }, std::pair { "XDG_CACHE_HOME", "/.cache" } }) {
        QDir().mkpath(work + QString::fromLatin1(sub));
        qputenv(name, QFile::encodeName(work + QString::fromLatin1(sub)));
    }
    CVLog::setSink([](const QString &) {});

    const QString libraryFile = work + u"/Music/iTunes/iTunes Library.xml"_s;
    CVLibraryGeneratorOptions options;
    options.tracks = parser.value(tracksOption).toInt();
    options.mediaRoot = work + u"/Music/iTunes"_s;
    options.secondDrive = work + u"/Archive"_s;
    options.createMediaFiles = true;
    options.mediaFileBytes = parser.value(bytesOption).toLongLong();
    QDir().mkpath(QFileInfo(libraryFile).path());
    CVLibraryGeneratorResult generated;
    if (!CVLibraryGenerator(options).write(libraryFile, &generated)) {
        std::fprintf(stderr, "the library could not be generated\n");
        return 1;
    }

    CVSpanSession session(libraryFile);
    CVLibraryFilePlayerLink link(libraryFile, CVSpanHistory::applicationSupportFolder(), &session.files);
    session.usePlayerLink(&link);
    CVMediaSpanner &spanner = session.spanner;
    const QString spanLocation = dest + u"/Spanned"_s;
    QDir().mkpath(spanLocation);

    // Only the tracks whose files are in the media folder: the same files cp -r copies.
    const QString media = work + u"/Music/iTunes/iTunes Media"_s;
    QList<CVTrack *> tracks;
    qint64 bytes = 0;
    for (CVTrack *t : session.library.allTracks()) {
        if (t->text(CVAttr::Location).startsWith(media + u'/')) {
            tracks.append(t);
            bytes += QFileInfo(t->text(CVAttr::Location)).size();
        }
    }

    // cp -r once to warm the page cache, then cp -r (and sync) timed, then Corvana.
    const QString cpTarget = dest + u"/cp-copy"_s;
    const QStringList cpArguments = parser.isSet(reflinkOption)
        ? QStringList { u"-r"_s, u"--reflink=auto"_s, media, cpTarget }
        : QStringList { u"-r"_s, media, cpTarget };
    runCommand(u"cp"_s, cpArguments);
    runCommand(u"rm"_s, { u"-rf"_s, cpTarget });
    runCommand(u"sync"_s, {});
    const double cp = runCommand(u"cp"_s, cpArguments);
    const double sync = runCommand(u"sync"_s, {});
    runCommand(u"rm"_s, { u"-rf"_s, cpTarget });
    runCommand(u"sync"_s, {});
    QElapsedTimer clock;
    double copyPhase = 0;
    QObject::connect(&spanner, &CVMediaSpanner::headerChanged, [&](const QString &header) {
        if (header.startsWith(u"Verifying"_s) && copyPhase == 0)
            copyPhase = double(clock.nsecsElapsed()) / 1e9;
    });
    QList<QPair<double, QString>> phases;
    QObject::connect(&spanner, &CVMediaSpanner::taskLineChanged, [&](const QString &line, int) {
        if (!line.contains(u" · "_s))
            phases.append({ double(clock.nsecsElapsed()) / 1e9, line });
    });
    clock.start();
    session.span(tracks, spanLocation);
    if (qEnvironmentVariableIsSet("BENCH_PHASES")) {
        for (const auto &[at, line] : phases)
            std::printf("  %7.3f s  %s\n", at, qPrintable(line));
    }
    const double corvana = double(clock.nsecsElapsed()) / 1e9;
    const int done = spanner.lastResults().successes;
    std::printf("copies and player updates %.2f s, verification and Trash %.2f s\n", copyPhase, corvana - copyPhase);
    std::printf("%lld tracks, %.1f MB: Corvana %.2f s (%d spanned, %.2f ms a track, %.0f MB/s); cp -r %.2f s "
                "(+ sync %.2f s); ratio of throughput %.2f (cp -r + sync: %.2f)\n",
        qlonglong(tracks.size()), double(bytes) / 1e6, corvana, done, corvana * 1000 / double(tracks.size()),
        double(bytes) / 1e6 / corvana, cp, sync, cp / corvana, (cp + sync) / corvana);
    runCommand(u"rm"_s, { u"-rf"_s, spanLocation });
    return done == int(tracks.size()) ? 0 : 1;
}
