#pragma once

#include "Library/CVSelectionPanes.h"
#include "Library/CVTrackList.h"

#include <QString>
#include <QStringList>

#include <optional>

class CVLibraryManager;
class CVSettings;

// The commands that select: select, browse, summary, locations, playlist-groups. They set
// the panes from the options (an omitted option constrains nothing) and print JSON.
class CVSelectionCommands {
public:
    struct Options {
        QString search;
        QStringList searchFields;
        QString spanFilter;
        QString media;
        QString location;
        QString playlist;
        QString predicate;
        bool json = false;
        QString field, column, sortField, title;
    };

    CVSelectionCommands(CVLibraryManager &library, CVSettings &settings, Options options);

    int select();
    int browse();
    int summary();
    int locations();
    int playlistGroups();
    // The tracks the options and the predicate select; nothing (with a message) on bad options.
    std::optional<CVTrackList> selectedTracks();

private:
    // Sets the panes and parses the predicate; false with a message on standard error.
    bool prepare(bool predicateRequired);

    CVLibraryManager &m_library;
    CVSettings &m_settings;
    Options m_options;
    CVFixedSelectionPanes m_panes;
    CVPredicate m_predicate;
};
