// corvana-genlib: writes a generated library file (and, when asked, its media files).
#include "CVLibraryGenerator.h"
#include "CVRhythmboxGenerator.h"
#include "CVStrawberryGenerator.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Writes a realistic library file for tests, benchmarks and the demo."_s);
    parser.addHelpOption();
    const QCommandLineOption tracks(u"tracks"_s, u"Number of tracks."_s, u"N"_s, u"1000"_s);
    const QCommandLineOption seed(u"seed"_s, u"Random seed."_s, u"S"_s, u"1"_s);
    const QCommandLineOption mediaRoot(u"media-root"_s,
        u"Folder that holds \"iTunes Media\" (with --create-media: default the library file's folder)."_s, u"DIR"_s);
    const QCommandLineOption secondDrive(u"second-drive"_s,
        u"Drive root for a tenth of the tracks (with --create-media: default DIR/Archive of --media-root)."_s,
        u"DIR"_s);
    const QCommandLineOption createMedia(u"create-media"_s, u"Write a small media file for every file track."_s);
    const QCommandLineOption mediaBytes(u"media-bytes"_s, u"With --create-media: about N bytes per file."_s, u"N"_s);
    const QCommandLineOption rhythmbox(
        u"rhythmbox"_s, u"Write Rhythmbox's rhythmdb.xml (and playlists.xml beside it) instead."_s);
    const QCommandLineOption strawberry(u"strawberry"_s,
        u"Write Strawberry's collection database (strawberry.db) of schema version V (15 or 23) instead."_s, u"V"_s);
    parser.addOptions({ tracks, seed, mediaRoot, secondDrive, createMedia, mediaBytes, rhythmbox, strawberry });
    parser.addPositionalArgument(u"file"_s, u"The library file to write."_s);
    parser.process(app);
    if (parser.positionalArguments().size() != 1) {
        std::fprintf(stderr, "%s", qUtf8Printable(parser.helpText()));
        return 2;
    }
    CVLibraryGeneratorOptions options;
    options.tracks = parser.value(tracks).toInt();
    options.seed = parser.value(seed).toULongLong();
    options.createMediaFiles = parser.isSet(createMedia);
    // Files are written only below the folders given, never at the made-up paths of the library.
    if (parser.isSet(mediaRoot))
        options.mediaRoot = QDir(parser.value(mediaRoot)).absolutePath();
    else if (options.createMediaFiles)
        options.mediaRoot = QFileInfo(parser.positionalArguments().first()).absolutePath();
    if (parser.isSet(secondDrive))
        options.secondDrive = QDir(parser.value(secondDrive)).absolutePath();
    else if (options.createMediaFiles)
        options.secondDrive = options.mediaRoot + u"/Archive"_s;
    options.mediaFileBytes = parser.value(mediaBytes).toLongLong();
    if (parser.isSet(strawberry)) {
        if (!parser.isSet(mediaRoot))
            options.mediaRoot = QFileInfo(parser.positionalArguments().first()).absolutePath();
        CVStrawberryGenerator generator(options, parser.value(strawberry).toInt());
        CVStrawberryGeneratorResult result;
        if (!generator.write(parser.positionalArguments().first(), &result)) {
            std::fprintf(stderr, "%s\n", qUtf8Printable(generator.errorString()));
            return 1;
        }
        std::printf("{\"songs\": %d, \"playlists\": %d, \"playlistItems\": %d}\n", result.songs, result.playlists,
            result.playlistItems);
        return 0;
    }
    if (parser.isSet(rhythmbox)) {
        if (!parser.isSet(mediaRoot))
            options.mediaRoot = QFileInfo(parser.positionalArguments().first()).absolutePath();
        CVRhythmboxGenerator generator(options);
        CVRhythmboxGeneratorResult result;
        if (!generator.write(parser.positionalArguments().first(), &result)) {
            std::fprintf(stderr, "%s\n", qUtf8Printable(generator.errorString()));
            return 1;
        }
        std::printf("{\"songs\": %d, \"otherEntries\": %d, \"playlists\": %d, \"bytes\": %lld}\n", result.songs,
            result.otherEntries, result.playlists, result.bytes);
        return 0;
    }
    CVLibraryGenerator generator(options);
    CVLibraryGeneratorResult result;
    if (!generator.write(parser.positionalArguments().first(), &result)) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(generator.errorString()));
        return 1;
    }
    std::printf("{\"fileTracks\": %d, \"otherTracks\": %d, \"playlists\": %d, \"bytes\": %lld}\n", result.fileTracks,
        result.otherTracks, result.playlists, result.bytes);
    return 0;
}
