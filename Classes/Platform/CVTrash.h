#pragma once

#include <QString>
#include <QStringList>

#include <functional>

// The freedesktop.org Trash: what the program trashes is listed and restored by every desktop's
// trash client. Files on the home volume go to $XDG_DATA_HOME/Trash; files on any other volume
// go to that volume's own trash ("<top>/.Trash/$uid" or "<top>/.Trash-$uid"), never across
// volumes, and never silently deleted when no trash can be had.
namespace CVTrash {

struct Result {
    bool ok = false;
    QString trashedPath; // where the item now lies inside the trash's files/ folder
    QString error; // a sentence for the user when not ok
};

// Moves a file, folder or symbolic link to the trash of its volume. Its info file is on disk
// before it moves, so that a power cut never leaves an item the Trash cannot put back.
Result moveToTrash(const QString &path);

// The same in steps, for many items at once: prepare writes each item's info file, one sync of
// each Trash's filesystem (CVFileCopier::syncFileSystemsOf over `infoFolder()`) makes them all
// durable, then commit moves each item. A crash in between leaves info files without items,
// which Trash clients ignore, never an item without its info.
struct Pending {
    QString path; // the item
    QString shown; // its name, for messages
    QString recordedPath; // as the info file records it
    QString trash; // the Trash folder
    QString infoPath; // the info file written, until committed or abandoned
    QString target; // the item's place in files/
    QString error;
    int attempt = 0;
    QString infoFolder() const { return trash + QStringLiteral("/info"); }
};
// False, with `pending.error`, when the item cannot go to a Trash; nothing is left behind then.
bool prepare(const QString &path, Pending &pending);
// Makes one prepared info file durable on its own (a file and a folder sync).
bool syncInfo(Pending &pending);
// Moves the prepared item; a name taken in the meantime gets the next one.
Result commit(Pending &pending);
// The item stays where it is; its info file goes.
void abandon(Pending &pending);

// The trash folders of this user that exist: the home trash, then those of every mounted volume.
QStringList trashFolders();
bool isEmpty();
// Deletes every entry of every trash folder of this user with its .trashinfo file. Only after
// the user has confirmed. Returns the number of entries removed; errors name what stayed.
int emptyTrash(QStringList *errors = nullptr);

// The home trash folder (not created).
QString homeTrashFolder();

// Which mount points' trash folders count (all by default). Tests keep to their own volumes,
// so that they never look into, or empty, the machine's real trash.
void setMountPointFilter(std::function<bool(const QString &)> filter);

} // namespace CVTrash
