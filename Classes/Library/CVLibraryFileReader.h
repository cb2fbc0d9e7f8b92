#pragma once

#include "Library/CVPlaylist.h"
#include "Library/CVStringInterner.h"
#include "Library/CVTrack.h"

#include <QHash>
#include <QString>

#include <array>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

class QIODevice;
class CVPlistReader;

// What one read of the player's library file yields. The deque keeps every track at a
// fixed address, so lists of the program can point into it.
struct CVLibraryContents {
    std::deque<CVTrack> tracks;
    std::vector<CVPlaylist> playlists;
    std::optional<QString> mediaPath; // from "Music Folder"
    std::optional<QString> persistentID; // from "Library Persistent ID"
};

// Turns the library file into track and playlist records in one streamed pass.
class CVLibraryFileReader {
public:
    struct Options {
        // After a crash while spanning, a track's original place is where the interrupted
        // run found it: persistent ID -> path.
        bool crashedWhileSpanning = false;
        QHash<QString, QString> lastTracksSpanned;
        // Bytes read so far and the file's size; called now and then.
        std::function<void(qint64 done, qint64 total)> progress;
    };

    CVLibraryFileReader();
    explicit CVLibraryFileReader(Options options);

    bool readFile(const QString &path, CVLibraryContents &out);
    bool readDevice(QIODevice *device, CVLibraryContents &out);
    bool readDocument(QByteArrayView document, CVLibraryContents &out);

    // "line L, column C: what was wrong", or why the file could not be opened.
    QString errorString() const { return m_error; }

private:
    struct PlaylistDraft;

    bool read(CVPlistReader &reader, CVLibraryContents &out, QIODevice *device);
    bool readTracks(CVPlistReader &reader, CVLibraryContents &out, CVStringInterner &interner, QIODevice *device);
    bool readTrack(CVPlistReader &reader, CVLibraryContents &out, CVStringInterner &interner);
    bool readPlaylists(CVPlistReader &reader, std::vector<PlaylistDraft> &drafts);
    bool readPlaylist(CVPlistReader &reader, PlaylistDraft &draft);
    void buildPlaylists(std::vector<PlaylistDraft> &drafts, CVLibraryContents &out);
    bool failFrom(const CVPlistReader &reader);

    Options m_options;
    QString m_error;
    QString m_libraryPersistentID;
    std::vector<qint64> m_bookTrackIDs;
    // The last interned text of each attribute: neighbouring tracks mostly share them.
    std::array<CVStringInterner::Entry *, kCVTextSlots> m_lastInterned {};
    qint64 m_total = 0;
};
