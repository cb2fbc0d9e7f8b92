#pragma once

#include "CVHDependentTrack.h"

#include <QString>

#include <vector>

// Reads the dependently spanned tracks from the span history: records with SymSpan set that
// are neither restored nor gone from the player. The helper only reads; it never writes a
// record, and never creates the store when there is none.
class CVHSpanHistoryReader {
public:
    // $XDG_DATA_HOME/Corvana/SpanRestoreHistory.cvcddb
    static QString defaultStorePath();

    // False with an error when the store exists but cannot be read; a missing store is an
    // empty history.
    static bool read(const QString &storePath, std::vector<CVHDependentTrack> &tracks, QString *error);
};
