#pragma once

#include <QtGlobal>

#include <memory>
#include <vector>

class CVTrack;

// A selection of tracks, shared and never changed once made. The id names the list in
// the memo: every list a selection returns is kept there under its source's id.
struct CVTrackListData {
    quint64 id = 0;
    std::vector<CVTrack *> tracks;
};

using CVTrackList = std::shared_ptr<const CVTrackListData>;
