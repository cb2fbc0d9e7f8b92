#pragma once

#include <QString>
#include <QStringList>

// Tests that mount drives do it in a mount namespace of their own (as root, or as the root of a
// user namespace where the machine allows one), with a fresh tmpfs over /mnt, so nothing they
// mount is seen outside the test and the machine's own mounts are never touched.
namespace CVTestMounts {

// Call from main() before QCoreApplication: a user namespace can only be entered by one thread.
// False, with the reason, when the machine allows neither.
bool enterPrivateMounts(const char *mntOptions = "size=1g,mode=0755");
bool available();
QString unavailableReason();
// Root of the machine, not only of a user namespace (loop devices and other users need that).
bool realRoot();

// A removable drive: a filesystem of its own kept at /mnt/.disks/NAME and shown at /mnt/NAME, so
// that unplugging it (the mount at /mnt/NAME goes) keeps its files, as a real drive does.
struct Drive {
    QString name;
    QString store;
    QString root;
    QString loopDevice; // for drives made from an image

    bool plug() const;
    bool unplug() const;
    bool makeReadOnly() const;
    // Leaves about `room` bytes free (none at all for 0).
    void fill(qint64 room) const;
};

// A tmpfs drive; fatal when it cannot be mounted (call only when available()).
Drive makeTmpfsDrive(const QString &name, const char *options = "size=512m");
// A drive of the given filesystem made from a sparse image file in `imageFolder`: "ext4", "btrfs",
// "xfs", "vfat", "exfat" (the kernel's, else FUSE's), "ntfs" (ntfs-3g), "ntfs-windows-names".
// Empty name and the reason when this machine cannot make or mount it.
Drive makeImageDrive(const QString &type, const QString &name, const QString &imageFolder, QString *why);
// Unmounts and removes every drive made here, in reverse order.
void removeDrives();

// Runs a program to its end; its exit code, or -1 when it could not be started.
int run(const QString &program, const QStringList &arguments, QString *output = nullptr);

} // namespace CVTestMounts
