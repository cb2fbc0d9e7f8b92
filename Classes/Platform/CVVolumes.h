#pragma once

#include <QList>
#include <QString>

// Drives other than the start-up drive, recognised from the path alone: /Volumes/<name>,
// /media/<user>/<name>, /media/<name>, /run/media/<user>/<name> and /mnt/<name>.
// Everything else lies on the start-up drive "/". Every caller asks here.
namespace CVVolumes {

// The drive root that holds the path, or an empty text for the start-up drive.
QString driveRootOfPath(const QString &path);
bool isDriveRoot(const QString &path);
// The folders that hold drive roots ("/Volumes", "/media/<user>", ...): never a span location.
bool isDriveContainer(const QString &path);
// The design's base path: the drive root for a path on another drive, else the first three
// components ("/" counts as one), so /home/ann/Music gives /home/ann; "nilPath" for "".
QString basePathOfPath(const QString &path);
// The root of the volume a destination lies on: its drive root, else "/".
QString volumeRootOfPath(const QString &path);
// Bytes free to this user on the volume that holds the path, asked afresh every call; a path
// that does not exist yet is measured at its nearest existing folder. -1 when nothing can be had.
qint64 freeSpaceForPath(const QString &path);
// One line of the kernel's mount table.
struct Mount {
    QString point;
    QString type; // "ext4", "fuseblk", ...
    QString source;
    quint64 device = 0; // the device number of its files (st_dev)
};
// The mounts of this process, in the kernel's order (later mounts over earlier ones).
QList<Mount> mounts();
// The lines of a /proc/self/mountinfo text.
QList<Mount> parseMountInfo(const QByteArray &text);
// Whether something is mounted at the path: listed in the mount table, or its device differs
// from its parent folder's. An unplugged drive leaves its mount folder behind as a plain folder.
bool isMountPoint(const QString &path);

// What a filesystem allows, from its type in the mount table.
struct FileSystem {
    QString type; // empty when it cannot be told
    // Windows rules for names: no " * : < > ? \ | or control characters, no trailing dot or blank,
    // no reserved device names. FAT, exFAT, NTFS (also through FUSE, where the table shows only
    // "fuseblk") and SMB shares.
    bool windowsNames = false;
    qint64 maxFileSize = -1; // bytes; -1 when no limit matters (FAT: 4 GiB - 1)
};
// The filesystem that holds the path (or would hold it: the nearest existing folder counts).
FileSystem fileSystemOf(const QString &path);
// What a filesystem of this mount table type allows.
FileSystem fileSystemOfType(const QString &type);
// Whether names in the folder are told apart by letter case: a file made under one case and looked
// for under another. False when the folder cannot be written (nothing then meets there anyway).
bool ignoresLetterCase(const QString &folder);

// The last path component; "/" shows the start-up drive's name.
QString displayName(const QString &path, const QString &startupDriveName);

} // namespace CVVolumes
