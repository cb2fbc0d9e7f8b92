#pragma once

#include <QString>

#include <cstdint>

// Writes realistic library files of any size, in the player's own layout: every media
// kind, compilations, album artists, TV seasons, names in NFC and NFD, quotes, stars,
// backslashes and slashes in tags, tracks on other drives, streams, nested folders,
// smart and Genius playlists and the hidden built-in ones. Deterministic for a seed.
struct CVLibraryGeneratorOptions {
    int tracks = 1000;
    std::uint64_t seed = 1;
    // Where the media folder lies; "<mediaRoot>/iTunes Media" becomes the "Music Folder".
    QString mediaRoot = QStringLiteral("/Users/demo/Music/iTunes");
    // A second drive that holds about a tenth of the tracks; empty: "/Volumes/Archive", or with
    // media files "<mediaRoot>/Archive".
    QString secondDrive;
    // Creates a small file on disk for every file track (its "Size" is the real size).
    bool createMediaFiles = false;
    // With media files: about this many bytes each (0: a few kB).
    qint64 mediaFileBytes = 0;
};

struct CVLibraryGeneratorResult {
    int fileTracks = 0; // tracks of type "File" with a location
    int otherTracks = 0; // streams and tracks without a file
    int playlists = 0; // records the reader makes (built-in ones excluded)
    qint64 bytes = 0;
};

class CVLibraryGenerator {
public:
    explicit CVLibraryGenerator(CVLibraryGeneratorOptions options);
    // False with errorString() when the file or a media file could not be written.
    bool write(const QString &libraryFile, CVLibraryGeneratorResult *result = nullptr);
    QString errorString() const { return m_error; }

private:
    CVLibraryGeneratorOptions m_options;
    QString m_error;
};
