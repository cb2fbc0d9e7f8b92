#pragma once

#include <QIcon>

// The window's icons: the desktop's icon theme when it has the name, else our own drawing,
// painted at every size and pixel ratio asked for (so HiDPI screens get sharp lines).
namespace CVIcons {

enum class Kind {
    Application,
    Drive,
    StartupDrive,
    Folder,
    File,
    Playlist,
    PlaylistFolder,
    SmartPlaylist,
    GeniusPlaylist,
    Search,
    QuestionMark,
    SpanLocation,
    Queue,
    Information,
    // The four outcomes of a run, drawn by us so that they mean the same on every desktop.
    ResultFullSuccess,
    ResultLinkSuccess,
    ResultSkip,
    ResultFail,
    TrashFull,
};

QIcon icon(Kind kind);
// A named image of the design ("TrashFull", "QuestionMark"); a null icon for an unknown name.
QIcon named(const QString &name);
// Our own drawing, without asking the theme (for the screenshots and the tests).
QIcon fallback(Kind kind);
// The application icon with the quit badge laid over it.
QIcon quitBadgedApplicationIcon();

} // namespace CVIcons
