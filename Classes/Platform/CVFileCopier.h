#pragma once

#include <QString>

// Copies one file so that a half-made copy is never seen under the real name: the bytes go to
// a temporary name in the destination folder (a reflink where the filesystem offers one, else
// copy_file_range), are flushed to disk and checked for size, and only then renamed into place,
// never over an existing file. Permissions and the modification time are kept. A failed copy
// leaves nothing behind.
namespace CVFileCopier {

struct Result {
    bool ok = false;
    bool noSpace = false; // the destination drive filled up
    QString error;
};

Result copyFile(const QString &source, const QString &destination);

} // namespace CVFileCopier
