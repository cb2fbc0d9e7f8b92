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
};

using CVTrackList = std::shared_ptr<const CVTrackListData>;
