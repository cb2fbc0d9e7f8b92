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

// Moves a file, folder or symbolic link to the trash of its volume.
Result moveToTrash(const QString &path);

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
