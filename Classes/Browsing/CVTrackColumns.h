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

// The column that sums up a track's span state; it stays at the left or the right end.
inline constexpr auto SmartColumn = "SmartRows";

const QList<CVTrackColumn> &all();
// The index into all(), or -1.
int indexOf(const QString &identifier);
// What a music player's user expects first: name, time, artist, album, genre and the span facts.
QStringList defaultIdentifiers();
// The smart column, when shown, moved to the left end (position 0) or the right end (any other).
QStringList placeSmartColumn(QStringList identifiers, int position);

} // namespace CVTrackColumns
