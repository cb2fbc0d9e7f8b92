#pragma once

#include "Library/CVAttribute.h"

#include <QList>
#include <QString>
#include <QStringList>

// The columns the track list can show: identifier (a track attribute's name, as the column
// display options use it), title, the attribute shown and the one sorted by.
struct CVTrackColumn {
    QString identifier;
    QString title;
    CVAttr shown;
    CVAttr sortedBy;
    bool alignRight = false;
};

namespace CVTrackColumns {

const QList<CVTrackColumn> &all();
// The index into all(), or -1.
int indexOf(const QString &identifier);
// What a music player's user expects first: name, time, artist, album, genre and the span facts.
QStringList defaultIdentifiers();

} // namespace CVTrackColumns
