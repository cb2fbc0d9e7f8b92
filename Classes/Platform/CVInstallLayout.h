#pragma once

#include <QString>

// Where the program's parts are, found from the running program's own place, so that the build
// tree and any installed prefix both work: programs in <prefix>/bin, the helper and the privileged
// runner in <prefix>/libexec/corvana, help and sounds in <prefix>/share/corvana. The build tree
// has the same layout below its top folder.
namespace CVInstallLayout {

// libexec/corvana beside the program's bin folder; else the folder of the configured prefix.
QString libexecFolder();
// share/corvana beside the program's bin folder; else the folder of the configured prefix.
QString dataFolder();
// A file of dataFolder() ("help/index.html", "sounds/DropTrack.wav"); empty when it is missing.
QString dataFile(const QString &relativePath);
// The user's support folder: $XDG_DATA_HOME/Corvana (the span history, the journals, the
// installed helper), or the temporary folder's "Corvana" when there is no data home.
QString supportFolder();

} // namespace CVInstallLayout
