#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// Points songs of Rhythmbox's library file at new places while Rhythmbox is not running: only
// the changed entries' location and mountpoint elements (and the same locations in the static
// playlists of playlists.xml) change; every other byte stays as it was. Each file is replaced
// atomically after a backup beside it. Applying the same changes again changes nothing more,
// so an interrupted write can simply be repeated.
namespace CVRhythmDBRewriter {

struct Change {
    QByteArray from; // the song's location now (its URI as the file holds it)
    QByteArray to; // its new location
    std::optional<QByteArray> mountPoint; // none: the entry keeps no mountpoint
};

struct Result {
    bool ok = false;
    int applied = 0; // songs whose location now reads the new one
    QList<QByteArray> unknown; // locations no entry has
    QString error;
};

// Checks every change first: an unknown library version, or a new location that another entry
// already has, refuses the whole batch with nothing touched.
Result apply(const QString &databasePath, const QList<Change> &changes);

// Why the file cannot be rewritten (it cannot be read, or its version is unknown), or an empty text.
QString checkFile(const QString &databasePath);

} // namespace CVRhythmDBRewriter
