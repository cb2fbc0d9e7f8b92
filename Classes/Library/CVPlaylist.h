#pragma once

#include "Library/CVPredicate.h"

#include <QByteArray>
#include <QString>

#include <optional>

// One user playlist, folder, smart or Genius playlist of the player's library.
struct CVPlaylist {
    QString name;
    std::optional<qint64> playlistID;
    QString playlistPersistentID;
    std::optional<QString> parentPersistentID;
    std::optional<bool> folder;
    std::optional<QByteArray> smartPlaylist; // the file's "Smart Info": present means smart
    bool genius = false;
    QString group; // "0 STORE", "1 GENIUS" or "2 PLAYLISTS"
    CVPredicate tracksPredicate;
};
