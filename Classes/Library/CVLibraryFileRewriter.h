#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

#include <vector>

// Points tracks of a library file at new places without parsing it into a tree: one streamed
// pass finds each changed track's Location string, and only those bytes are replaced. The file
// is replaced atomically (new file beside it, fsync, rename) after a backup beside it, so a
// crash at any moment leaves the old file or the new one, whole.
namespace CVLibraryFileRewriter {

struct Result {
    bool ok = false;
    int applied = 0; // tracks whose Location now reads the new place
    QStringList unknown; // persistent IDs the library does not hold
    QString error;
};

// locations: persistent ID -> new path of the file.
Result applyLocations(const QString &libraryPath, const QHash<QString, QString> &locations);

QString backupPath(const QString &libraryPath);

// One replacement of bytes of a file: [start, end) becomes `bytes` (start == end inserts).
struct Edit {
    qint64 start;
    qint64 end;
    QByteArray bytes;
};
// Writes the file's bytes with the edits (sorted by start, not overlapping) into a new file
// beside it, fsyncs it, keeps a backup of the old file and renames the new one over it, with
// the old file's permissions. Nothing is changed when it returns false (with the reason).
bool replaceWithEdits(const QString &path, QByteArrayView original, const std::vector<Edit> &edits, QString &error);

} // namespace CVLibraryFileRewriter
