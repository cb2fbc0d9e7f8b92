#pragma once

#include "Library/CVPlaylist.h"
#include "Library/CVStringInterner.h"
#include "Library/CVTrack.h"
#include "Library/CVTrackStore.h"

#include <QHash>
#include <QString>

#include <array>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QFile;
class QIODevice;
class CVPlistReader;

// What one read of the player's library file yields. The store keeps every track at a
// fixed address, so lists of the program can point into it.
struct CVLibraryContents {
    CVTrackStore tracks;
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
        // A file or document at least this large has its tracks read by two threads, one half
        // each (a file that cannot be split cleanly is read by one).
        qint64 twoPartsFrom = 8 << 20;
    };

    CVLibraryFileReader();
    explicit CVLibraryFileReader(Options options);
    ~CVLibraryFileReader();

    bool readFile(const QString &path, CVLibraryContents &out);
    bool readDevice(QIODevice *device, CVLibraryContents &out);
    bool readDocument(QByteArrayView document, CVLibraryContents &out);

    // "line L, column C: what was wrong", or why the file could not be opened.
    QString errorString() const { return m_error; }

    // How the last read went: in two parts, or in one and why.
    enum class Split { None, TooSmall, NoBoundary, Abandoned, TwoParts };
    Split lastSplit() const { return m_split; }

private:
    struct PlaylistDraft;
    struct Part;
    struct SecondPart;
    enum class Outcome { Failed, Done, HandedOver };

    bool read(CVPlistReader &reader, CVLibraryContents &out);
    Outcome readTopLevel(CVPlistReader &reader, Part &part, bool insideTracks);
    Outcome readTracks(CVPlistReader &reader, Part &part);
    bool readTrack(CVPlistReader &reader, Part &part);
    bool readPlaylists(CVPlistReader &reader, Part &part);
    bool readPlaylist(CVPlistReader &reader, Part &part, PlaylistDraft &draft);
    void buildPlaylists(std::vector<PlaylistDraft> &drafts, CVLibraryContents &out);
    bool failFrom(Part &part, const CVPlistReader &reader);
    void startSecondPart(const CVPlistReader &reader, Part &first);
    bool joinSecondPart(Part &first, bool adopt);
    std::unique_ptr<CVPlistReader> openSecondReader(std::unique_ptr<QIODevice> &device) const;
    std::optional<qint64> findTrackBoundary(qint64 tracksStart) const;

    Options m_options;
    QString m_error;
    qint64 m_total = 0;
    QString m_path; // the file read, when it can be opened again by a second thread
    QFile *m_file = nullptr;
    QByteArrayView m_document; // or the document in memory
    Split m_split = Split::None;
    std::unique_ptr<SecondPart> m_second;
};
