#pragma once

#include <QtGlobal>

#include <memory>
#include <vector>

class CVTrack;

// The two orders a selection comes out in (see CVSelection), or none known.
enum class CVTrackOrder : quint8 { Unknown, ArtistFirst, AlbumFirst };

// A selection of tracks, shared and never changed once made. The id names the list in
// the memo: every list a selection returns is kept there under its source's id.
struct CVTrackListData {
    quint64 id = 0;
    std::vector<CVTrack *> tracks;
    // What the list is sorted by, when it is known: a narrower list of it keeps the order.
    CVTrackOrder order = CVTrackOrder::Unknown;
    // The tracks' indices (CVTrack::index()), when the selection that made the list kept them:
    // tables beside the tracks are then read without touching the tracks.
    std::vector<int> indices;

    int indexAt(std::size_t i) const;
};

#include "Library/CVTrack.h"

inline int CVTrackListData::indexAt(std::size_t i) const
{
    return indices.empty() ? tracks[i]->index() : indices[i];
}

using CVTrackList = std::shared_ptr<const CVTrackListData>;
