#pragma once

#include <QString>

#include <sys/types.h>
#include <time.h>

// Copies one file so that a half-made copy is never seen under the real name: the bytes go to
// a temporary name in the destination folder (a reflink where the filesystem offers one, else
// copy_file_range), are checked for size (and flushed to disk, unless the caller syncs the whole
// filesystem later), and only then take the real name, never over an existing file. Permissions
// and the modification time are kept. A failed copy leaves nothing behind. Only regular files
// are copied: a FIFO or a device at the source is refused before a byte is read.
namespace CVFileCopier {

// What tells one file from another without reading it: the kernel changes the change time on
// every write, rename or attribute change, and no program can set it.
struct Identity {
    bool valid = false; // a regular file was there
    dev_t device = 0;
    ino_t inode = 0;
    qint64 size = 0;
    struct timespec modified { };
    struct timespec changed { };
};
Identity identityOf(const QString &path); // of the item itself, links not followed
bool sameIdentity(const Identity &a, const Identity &b);

struct Result {
    bool ok = false;
    bool noSpace = false; // the destination drive filled up
    bool notAFile = false; // the source is a folder, FIFO, device or socket
    int errorNumber = 0; // the system's reason when not ok
    QString error;
    Identity copy; // the finished copy under its real name
};

enum class Durability {
    Sync, // on disk, name included, when this returns
    Deferred, // the caller syncs the destination's filesystem before it relies on the copy
};

Result copyFile(const QString &source, const QString &destination, Durability durability = Durability::Sync);

// Flushes the whole filesystem that holds the path (one call for any number of copies).
bool syncFileSystemOf(const QString &path);
// Flushes each filesystem that holds one of the paths once (a path not there yet counts by its
// nearest folder that is). False, naming the first that failed in `error`, when any fails.
bool syncFileSystemsOf(const QStringList &paths, QString *error = nullptr);

// Whether two files hold the same bytes, read side by side (from the page cache, mostly).
enum class Comparison { Same, Different, Unreadable };
Comparison compareContents(const QString &a, const QString &b, QString *error = nullptr);

// Makes the missing folders of `folder` below `top`, which must exist already and is never made
// itself. Under a drive root folders are made only while the drive is mounted there: an
// unplugged drive leaves an empty folder behind, and copies into it would land on the system
// disk, hidden by the drive when it comes back.
struct FolderResult {
    bool ok = false;
    QString failedFolder; // the folder that could not be made
    int errorNumber = 0;
    QString error; // a sentence naming the folder and the reason
};
FolderResult makeFolders(const QString &folder, const QString &top);

// "a folder", "a FIFO", ... for the kind of item a path names (links not followed).
QString kindOfItem(mode_t mode);

} // namespace CVFileCopier
