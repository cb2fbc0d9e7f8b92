#pragma once

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
// The last path component; "/" shows the start-up drive's name.
QString displayName(const QString &path, const QString &startupDriveName);

} // namespace CVVolumes
