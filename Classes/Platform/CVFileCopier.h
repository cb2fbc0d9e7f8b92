#pragma once

#include <QString>

// Copies one file so that a half-made copy is never seen under the real name: the bytes go to
// a temporary name in the destination folder (a reflink where the filesystem offers one, else
// copy_file_range), are checked for size (and flushed to disk, unless the caller syncs the whole
// filesystem later), and only then renamed into place,
// never over an existing file. Permissions and the modification time are kept. A failed copy
// leaves nothing behind.
namespace CVFileCopier {

struct Result {
    bool ok = false;
    bool noSpace = false; // the destination drive filled up
    QString error;
};

enum class Durability {
    Sync, // on disk, name included, when this returns
    Deferred, // the caller syncs the destination's filesystem before it relies on the copy
};

Result copyFile(const QString &source, const QString &destination, Durability durability = Durability::Sync);

// Flushes the whole filesystem that holds the path (one call for any number of copies).
bool syncFileSystemOf(const QString &path);

} // namespace CVFileCopier
