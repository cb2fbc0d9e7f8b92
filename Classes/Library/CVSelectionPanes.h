#pragma once

#include "Library/CVPredicate.h"

// The panes' current predicates, in the parts of a predicate stack: the window's panes
// implement it; the command-line tool and the tests give fixed values.
class CVSelectionPanes {
public:
    virtual ~CVSelectionPanes() = default;

    virtual CVPredicate getSpanFilterPredicate() const = 0;
    virtual CVPredicate getMediaTypePredicate() const = 0;
    virtual CVPredicate getLocationPredicate() const = 0;
    virtual CVPredicate getSpanQueuePredicate() const = 0;
    virtual CVPredicate getPlaylistPredicate() const = 0;
};

// Fixed pane values; an empty text constrains nothing.
class CVFixedSelectionPanes : public CVSelectionPanes {
public:
    CVPredicate spanFilter, mediaType, location, spanQueue, playlist;

    CVPredicate getSpanFilterPredicate() const override { return spanFilter; }
    CVPredicate getMediaTypePredicate() const override { return mediaType; }
    CVPredicate getLocationPredicate() const override { return location; }
    CVPredicate getSpanQueuePredicate() const override { return spanQueue; }
    CVPredicate getPlaylistPredicate() const override { return playlist; }
};
