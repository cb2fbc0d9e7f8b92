// The spanning queue, the span/restore mode and the walk-through line of CVWindowDelegate.
#include "CVWindowDelegate.h"

#include "Browsing/CVBrowserDelegate.h"
#include "Browsing/CVPlaylistsDelegate.h"
#include "CVApplicationDelegate.h"
#include "Library/CVFormatters.h"
#include "Library/CVLibraryManager.h"
#include "Library/CVPredicateArchive.h"
#include "Library/CVTrack.h"
#include "MainWindow/CVLocationsDelegate.h"
#include "MainWindow/CVMainWindow.h"
#include "MainWindow/CVSheetPresenter.h"
#include "MainWindow/CVSounds.h"
#include "MainWindow/CVSpanQueue.h"
#include "MainWindow/CVWalkThrough.h"
#include "Platform/CVSettings.h"
#include "Views/CVSpanLocationView.h"
#include "Views/CVSpanQueueDropZone.h"
#include "Views/CVVanishingPuff.h"

#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QLabel>
#include <QListView>
#include <QPushButton>
#include <QTableView>
#include <QToolButton>
#include <QTreeView>

using namespace Qt::StringLiterals;

namespace {

QString plural(qint64 n)
{
    return n == 1 ? u""_s : u"s"_s;
}

} // namespace

// ---- The queue ---------------------------------------------------------------------------

const QHash<qint64, CVTrack *> &CVWindowDelegate::spanQueue() const
{
    return m_queue->tracks();
}

QList<CVTrack *> CVWindowDelegate::queuedTracks() const
{
    return m_queue->queuedTracks();
}

double CVWindowDelegate::currentSpanQueueSize() const
{
    return m_queue->size();
}

CVPredicate CVWindowDelegate::getSpanQueuePredicateForField(const QString &field) const
{
    return m_queue->predicateForField(field);
}

void CVWindowDelegate::queueChanged()
{
    m_selection->setQueuePredicate(m_queue->predicate());
    updateSpanSummary();
}

void CVWindowDelegate::performDrop(const CVPredicate &predicate)
{
    m_queue->addOrRemove(predicate, m_wantsRemoveDropSet);
    m_walkThrough->setWalkThroughTextTo(
        u"Select Span Location by Clicking or Dropping a Folder Below"_s, u"ChooseLocation"_s);
    m_selection->queueContentsChanged();
}

void CVWindowDelegate::performDropOfArchive(const QByteArray &archived, const QPoint &globalPosition)
{
    const std::optional<CVPredicate> predicate = CVPredicateArchive::unarchive(archived);
    if (!predicate || m_app->crashedWhileSpanningLastRun()) {
        m_wantsRemoveDropSet = false;
        return;
    }
    // Drops are never confirmed.
    playQueueFeedback(m_wantsRemoveDropSet, globalPosition);
    performDrop(*predicate);
    m_wantsRemoveDropSet = false;
}

void CVWindowDelegate::playQueueFeedback(bool removal, const QPoint &globalPosition)
{
    if (!m_settings->boolValue(CVSettingsKey::PlaySpanQueueDropSounds))
        return;
    if (removal)
        CVVanishingPuff::showAt(globalPosition + QPoint(15, 25));
    else
        m_sounds->play(u"DropTrack"_s);
}

void CVWindowDelegate::saveSpanningQueue()
{
    m_queue->save();
    m_selection->setQueuePredicate(m_queue->predicate());
}

void CVWindowDelegate::updateSpanSummary()
{
    m_window->spanQueueDropZone->setSummary(m_queue->summary(m_shouldRoundOffTime));
}

void CVWindowDelegate::toggleRoundTimesForSummary()
{
    m_shouldRoundOffTime = !m_shouldRoundOffTime;
    updateSpanSummary();
    refreshBrowserDependentText();
}

void CVWindowDelegate::updateSummaryForSource(const QString &source, const CVTrackList &tracks)
{
    if (source != u"Tracks"_s)
        return;
    // Summed here: the library's summary is keyed by every track ID, which for a whole library
    // costs more than the sums themselves.
    const std::size_t count = tracks ? tracks->tracks.size() : 0;
    if (count == 0) {
        m_window->trackSummary->setText(u"No Tracks"_s);
        return;
    }
    double time = 0, size = 0;
    for (const CVTrack *t : tracks->tracks) {
        time += t->real(CVAttr::TotalTime);
        size += t->real(CVAttr::Size);
    }
    m_window->trackSummary->setText(u"%1 item%2, %3, %4"_s.arg(count).arg(plural(qint64(count)),
        CVFormatters::humanReadableTimeFromMilliseconds(time, true), CVFormatters::humanReadableSizeFromBytes(size)));
}

void CVWindowDelegate::browseSpanningQueue(bool fromInterface)
{
    const bool browsing = isBrowsingSpanningQueue();
    if (fromInterface && !mainViewIsVisible()) {
        if (!browsing && m_queue->isEmpty())
            QApplication::beep();
        return;
    }
    if (!browsing && m_queue->isEmpty()) {
        QApplication::beep();
        return;
    }
    m_window->action(u"addSelection"_s)->setVisible(browsing);
    m_window->action(u"removeSelection"_s)->setVisible(!browsing);
    if (!browsing)
        m_walkThrough->setWalkThroughTextTo(
            u"Browsing Spanning Queue \u2013 Drag Media Here to Remove"_s, u"BrowseSpanQueue"_s);
    m_selection->setBrowsingQueue(!browsing);
    // A search that finds nothing in the queue is let go.
    if (!browsing && m_browser->trackSource() && m_browser->trackSource()->tracks.empty()
        && !m_library->searchString().isEmpty())
        doFilterSourcesWithSearch(u""_s);
    m_walkThrough->setWalkThroughTextToProperStep();
    m_window->spanQueueDropZone->setBrowsing(!browsing);
}

void CVWindowDelegate::confirmQueueSheet(const QString &message, const CVPredicate &predicate, const QString &title)
{
    const QVariantMap lines = m_library->getSummaryLinesForPredicate(predicate, title);
    if (lines.isEmpty()) {
        m_wantsRemoveDropSet = false;
        return;
    }
    CVAlert alert;
    alert.title = message;
    alert.text = u"%1\n%2\n%3"_s.arg(lines.value(u"LineOneString"_s).toString(),
        lines.value(u"LineTwoString"_s).toString(), lines.value(u"OverviewString"_s).toString());
    alert.defaultButton = m_wantsRemoveDropSet ? u"Remove"_s : u"Add"_s;
    alert.alternateButton = u"Cancel"_s;
    alert.style = CVAlert::Style::Informational;
    // The predicate travels with the sheet, archived.
    const QByteArray archived = CVPredicateArchive::archive(predicate);
    m_presenter->beginSheet(alert, [this, archived](int returnCode) {
        if (returnCode == CVPresenter::DefaultReturn) {
            if (const auto p = CVPredicateArchive::unarchive(archived)) {
                performDrop(*p);
                playQueueFeedback(m_wantsRemoveDropSet, QCursor::pos());
            }
        }
        m_wantsRemoveDropSet = false;
    });
}

void CVWindowDelegate::addOrRemoveSelectionFromQueue()
{
    if (m_app->crashedWhileSpanningLastRun() || !mainViewIsVisible())
        return;
    QWidget *focus = QApplication::focusWidget();
    QString kind, title;
    CVPredicate predicate;
    const QModelIndexList genre = m_window->genreView->selectionModel()->selectedRows();
    const QModelIndexList artist = m_window->artistView->selectionModel()->selectedRows();
    const QModelIndexList album = m_window->albumView->selectionModel()->selectedRows();
    if (focus == m_window->trackView && !m_browser->selectedTrackRows().isEmpty()) {
        kind = u"track"_s;
        predicate = m_browser->retrievePredicateForTrackTableRowIndexes(m_browser->selectedTrackRows());
    } else if (focus == m_window->genreView && !genre.isEmpty()) {
        kind = u"genre"_s;
        if (genre.first().row() != 0)
            title = genre.first().data().toString();
        predicate = m_browser->retrievePredicateForRowBeingDragged(genre.first().row(), CVBrowserDelegate::GenreColumn);
    } else if (focus == m_window->artistView && !artist.isEmpty()) {
        kind = u"artist"_s;
        predicate
            = m_browser->retrievePredicateForRowBeingDragged(artist.first().row(), CVBrowserDelegate::ArtistColumn);
    } else if (focus == m_window->albumView && !album.isEmpty()) {
        kind = u"album"_s;
        predicate = m_browser->retrievePredicateForRowBeingDragged(album.first().row(), CVBrowserDelegate::AlbumColumn);
    } else if (focus == m_window->locationsView && m_locations->selectedIndex().isValid()) {
        kind = u"location"_s;
        title = m_locations->selectedLocation();
        predicate = m_locations->getLocationPredicate();
    } else if (focus == m_window->playlistsView && m_playlists->selectedIndex().isValid()) {
        kind = u"playlist"_s;
        title = m_playlists->selectedPlaylist();
        predicate = m_playlists->getPlaylistPredicate();
    } else {
        return;
    }
    m_wantsRemoveDropSet = isBrowsingSpanningQueue();
    const bool remove = m_wantsRemoveDropSet;
    confirmQueueSheet(u"Are you sure you want to %1 the current %2 selection %3 the spanning queue?"_s.arg(
                          remove ? u"remove"_s : u"add"_s, kind, remove ? u"from"_s : u"to"_s),
        predicate, title);
}

void CVWindowDelegate::addOrRemoveMediaTypeFromQueue(const CVPredicate &predicate, const QString &mediaName)
{
    if (m_app->crashedWhileSpanningLastRun())
        return;
    m_wantsRemoveDropSet = isBrowsingSpanningQueue();
    const bool remove = m_wantsRemoveDropSet;
    confirmQueueSheet(u"Are you sure you want to %1 %2 %3 the spanning queue?"_s.arg(
                          remove ? u"remove"_s : u"add"_s, mediaName, remove ? u"from"_s : u"to"_s),
        predicate, mediaName);
}

void CVWindowDelegate::clearSpanningQueue()
{
    if (m_queue->isEmpty() || m_app->crashedWhileSpanningLastRun())
        return;
    CVAlert alert;
    alert.title = u"\nAre you sure you want to clear all of the tracks in the spanning queue?"_s;
    alert.defaultButton = u"Clear All"_s;
    alert.alternateButton = u"Cancel"_s;
    m_presenter->beginSheet(alert, [this](int returnCode) {
        if (returnCode != CVPresenter::DefaultReturn)
            return;
        m_queue->clear();
        m_walkThrough->setWalkThroughTextToProperStep();
        m_selection->queueContentsChanged();
        playQueueFeedback(true, QCursor::pos());
    });
}

// ---- The bulk commands -------------------------------------------------------------------

void CVWindowDelegate::fillQueueWithPredicate(const CVPredicate &predicate, bool replace)
{
    m_queue->fill(predicate, replace);
    playQueueFeedback(false, QCursor::pos());
}

void CVWindowDelegate::selectAllSpannedTracksToRestore()
{
    if (m_app->crashedWhileSpanningLastRun() || !mainViewIsVisible())
        return;
    CVAlert alert;
    alert.title = u"Are you sure you want to select all spanned tracks and set to restore mode?"_s;
    alert.defaultButton = u"Select All Spanned Tracks & Set Restore Mode"_s;
    alert.alternateButton = u"Cancel"_s;
    alert.text = u"Any tracks currently in the spanning queue will be replaced."_s;
    m_presenter->beginSheet(alert, [this](int returnCode) {
        if (returnCode != CVPresenter::DefaultReturn)
            return;
        fillQueueWithPredicate(CVPredicate::fromText(u"( ItemIsSpanned == 1 )"_s), true);
        m_selection->queueContentsChanged();
        doSetRestoreMode();
    });
}

void CVWindowDelegate::selectAllTracksToConsolidateFiles()
{
    if (m_app->crashedWhileSpanningLastRun() || !mainViewIsVisible())
        return;
    CVAlert alert;
    alert.title = u"Are you sure you want to select all tracks and set span mode?"_s;
    alert.defaultButton = u"Select All Tracks & Set Span Mode"_s;
    alert.alternateButton = u"Cancel"_s;
    alert.text = u"Select a span location to consolidate all of your files, any tracks whose files are already in the "
                 "selected location will be skipped."_s;
    m_presenter->beginSheet(alert, [this](int returnCode) {
        if (returnCode != CVPresenter::DefaultReturn)
            return;
        fillQueueWithPredicate(CVPredicate::fromText(u""_s), true);
        m_walkThrough->setWalkThroughTextTo(
            u"Select Span Location by Clicking or Dropping a Folder Below"_s, u"ChooseLocation"_s);
        m_selection->queueContentsChanged();
        doSetSpanMode();
    });
}

void CVWindowDelegate::selectLastTracksSpannedRestored()
{
    if (m_app->crashedWhileSpanningLastRun() || !mainViewIsVisible())
        return;
    const QStringList last = m_settings->mapValue(CVSettingsKey::LastTracksSpanned).keys();
    const auto add = [this, last](bool replace) {
        fillQueueWithPredicate(CVPredicate::forPersistentIDs(last), replace);
        m_walkThrough->setWalkThroughTextTo(
            u"Select Span Location by Clicking or Dropping a Folder Below"_s, u"ChooseLocation"_s);
        m_selection->queueContentsChanged();
    };
    if (m_queue->isEmpty()) {
        add(false);
        return;
    }
    CVAlert alert;
    alert.title = u"Add to, or replace the spanning queue?"_s;
    alert.defaultButton = u"Add"_s;
    alert.alternateButton = u"Cancel"_s;
    alert.otherButton = u"Replace"_s;
    alert.text = u"Would you like to add the last tracks %1 to the tracks in the spanning queue, or replace the tracks "
                 "in the spanning queue?"_s.arg(
                     m_settings->stringValue(CVSettingsKey::LastSpanLocation) == u"CVRestoreMode"_s ? u"restored"_s
                                                                                                    : u"spanned"_s);
    m_presenter->beginSheet(alert, [add](int returnCode) {
        if (returnCode != CVPresenter::AlternateReturn)
            add(returnCode == CVPresenter::OtherReturn);
    });
}

// ---- Modes -------------------------------------------------------------------------------

void CVWindowDelegate::setSpanMode()
{
    if (m_app->isLoadingCorvana() || !mainViewIsVisible() || !m_restoreMode || m_app->crashedWhileSpanningLastRun()) {
        m_window->spanModeButton->setChecked(!m_restoreMode);
        m_window->restoreModeButton->setChecked(m_restoreMode);
        return;
    }
    doSetSpanMode();
}

void CVWindowDelegate::setRestoreMode()
{
    if (m_app->isLoadingCorvana() || !mainViewIsVisible() || m_restoreMode || m_app->crashedWhileSpanningLastRun()) {
        m_window->spanModeButton->setChecked(!m_restoreMode);
        m_window->restoreModeButton->setChecked(m_restoreMode);
        return;
    }
    doSetRestoreMode();
}

void CVWindowDelegate::doSetSpanMode()
{
    m_window->spanLocationView->setRestoreMode(false);
    m_window->spanModeButton->setChecked(true);
    m_window->spanButton->setText(u"Span…"_s);
    m_window->action(u"start"_s)->setText(u"Span…"_s);
    m_restoreMode = false;
    if (m_settings->boolValue(CVSettingsKey::AutosaveSpanLocation)) {
        m_settings->setValue(CVSettingsKey::SavedSpanLocation, spanLocation());
        m_settings->synchronize();
    }
    m_walkThrough->setWalkThroughTextToProperStep();
}

void CVWindowDelegate::doSetRestoreMode()
{
    m_walkThrough->setWalkThroughTextTo(
        u"When Ready, Click 'Restore…' to Move Selected Tracks to Original Locations"_s, u"ReadyToRestore"_s);
    m_window->spanLocationView->setRestoreMode(true);
    m_window->restoreModeButton->setChecked(true);
    m_window->spanButton->setText(u"Restore…"_s);
    m_window->action(u"start"_s)->setText(u"Restore…"_s);
    m_restoreMode = true;
    if (m_settings->boolValue(CVSettingsKey::AutosaveSpanLocation)) {
        m_settings->setValue(CVSettingsKey::SavedSpanLocation, u"CVRestoreMode"_s);
        m_settings->synchronize();
    }
    m_walkThrough->setWalkThroughTextToProperStep();
}
