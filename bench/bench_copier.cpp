// The copier's way of giving a copy its name, against a plain rename, on one destination: N files
// of B bytes are copied (to the page cache; one syncfs at the end of each round, as a run does),
// once with CVFileCopier (which never replaces a file: rename-if-absent, else a hard link, else an
// exclusive claim of the name renamed over) and once with write-then-rename(2) (which would replace
// anything). Rounds alternate; the best of each is printed with the ratio.
//
//   bench_copier --dest DIR [--files N] [--bytes B] [--rounds R]
#include "Platform/CVFileCopier.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// What a copier does that may replace: temporary file, bytes, times and mode, rename.
bool plainCopy(const QByteArray &from, const QByteArray &to, const QByteArray &temporary)
{
    const int in = ::open(from.constData(), O_RDONLY | O_CLOEXEC);
    const int out = ::open(temporary.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    struct stat info { };
    bool ok = in >= 0 && out >= 0 && ::fstat(in, &info) == 0;
    static char buffer[1 << 20];
    while (ok) {
        const ssize_t n = ::read(in, buffer, sizeof buffer);
        if (n <= 0) {
            ok = n == 0;
            break;
        }
        ok = ::write(out, buffer, size_t(n)) == n;
    }
    if (ok) {
        const struct timespec times[2] = { info.st_atim, info.st_mtim };
        ::futimens(out, times);
        ::fchmod(out, info.st_mode & 07777);
    }
    if (in >= 0)
        ::close(in);
    if (out >= 0)
        ::close(out);
    return ok && ::rename(temporary.constData(), to.constData()) == 0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption destOption(u"dest"_s, u"Folder on the drive to measure."_s, u"DIR"_s);
    const QCommandLineOption filesOption(u"files"_s, u"Files."_s, u"N"_s, u"2000"_s);
    const QCommandLineOption bytesOption(u"bytes"_s, u"Bytes per file."_s, u"B"_s, u"20000"_s);
    const QCommandLineOption roundsOption(u"rounds"_s, u"Rounds."_s, u"R"_s, u"3"_s);
    parser.addOptions({ destOption, filesOption, bytesOption, roundsOption });
    parser.process(app);
    const QString dest = parser.value(destOption);
    const int files = parser.value(filesOption).toInt();
    const qint64 bytes = parser.value(bytesOption).toLongLong();
    if (dest.isEmpty() || files <= 0) {
        std::fprintf(stderr, "usage: bench_copier --dest DIR [--files N] [--bytes B] [--rounds R]\n");
        return 2;
    }
    QTemporaryDir sources;
    for (int i = 0; i < files; ++i) {
        QFile f(sources.filePath(u"%1.m4a"_s.arg(i)));
        if (!f.open(QIODevice::WriteOnly))
            return 1;
        f.write(QByteArray(bytes, char('a' + i % 26)));
    }
    double best[2] = { 1e9, 1e9 };
    for (int round = 0; round < parser.value(roundsOption).toInt(); ++round) {
        for (int turn = 0; turn < 2; ++turn) {
            // Each goes first every other round: the first of a round finds a drive the other just emptied.
            const int way = round % 2 == 0 ? turn : 1 - turn;
            const QString folder = dest + (way == 0 ? u"/corvana"_s : u"/plain"_s);
            QDir(folder).removeRecursively();
            QDir().mkpath(folder);
            CVFileCopier::syncFileSystemOf(folder);
            QElapsedTimer clock;
            clock.start();
            for (int i = 0; i < files; ++i) {
                const QString source = sources.filePath(u"%1.m4a"_s.arg(i));
                const QString target = folder + u"/%1.m4a"_s.arg(i);
                const bool ok = way == 0 ? CVFileCopier::copyFile(source, target, CVFileCopier::Durability::Deferred).ok
                                         : plainCopy(QFile::encodeName(source), QFile::encodeName(target),
                                             QFile::encodeName(folder + u"/.part"_s));
                if (!ok) {
                    std::fprintf(stderr, "copy %d failed\n", i);
                    return 1;
                }
            }
            CVFileCopier::syncFileSystemOf(folder);
            best[way] = std::min(best[way], double(clock.nsecsElapsed()) / 1e9);
            QDir(folder).removeRecursively();
        }
    }
    std::printf("%d files of %lld bytes: CVFileCopier %.3f s (%.3f ms a file), plain rename %.3f s; ratio %.2f\n",
        files, bytes, best[0], best[0] * 1000 / files, best[1], best[0] / best[1]);
    return 0;
}
