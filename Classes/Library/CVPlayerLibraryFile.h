#pragma once

#include "Library/CVLibraryFileReader.h"

#include <QString>

// "The player's library file", of whichever kind: an iTunes-format property list, Rhythmbox's
// rhythmdb.xml, or Strawberry's collection database. Every reader of the player's library (the load, and verification
// after a run) comes through here, so both see a file the same way.
namespace CVPlayerLibraryFile {

enum class Kind { ITunes, Rhythmbox, Strawberry };

// The values of the preference "Player" and of corvana-cli --player.
inline constexpr auto PlayerAuto = "auto";
inline constexpr auto PlayerRhythmbox = "rhythmbox";
inline constexpr auto PlayerStrawberry = "strawberry";
inline constexpr auto PlayerITunesFile = "itunes-file";
inline constexpr auto PlayerDBus = "dbus";
bool isPlayerName(const QString &player);

// By its name, else by its first bytes (a SQLite header, or the first element).
Kind kindOf(const QString &path);
// $XDG_DATA_HOME/rhythmbox/rhythmdb.xml
QString rhythmboxLibraryPath();
// $XDG_DATA_HOME/strawberry/strawberry/strawberry.db
QString strawberryLibraryPath();
// The library file of the player: for "rhythmbox" Rhythmbox's, for "strawberry" Strawberry's,
// for "itunes-file" and "dbus" the iTunes-format file under home, for "auto" the iTunes-format
// file when there is one, else Rhythmbox's, else Strawberry's. An empty text when that file does
// not exist.
QString chooseLibraryFile(const QString &homePath, const QString &player);

// Reads the file into contents; false with the reason ("line L, column C: ...").
bool read(const QString &path, CVLibraryContents &out, CVLibraryFileReader::Options options, QString *error);

} // namespace CVPlayerLibraryFile
