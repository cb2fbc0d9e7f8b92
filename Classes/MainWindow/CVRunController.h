#pragma once

#include "Engine/CVResultRow.h"
#include "Engine/CVSpannerRunHost.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>

class CVLauncherEntry;
class CVLibraryManager;
class CVMainWindow;
class CVMediaSpanner;
class CVResultsModel;
class CVRunProgress;
class CVSettings;
class CVSheetPresenter;
class CVSounds;
class CVSpanQueue;
class CVTrack;
class QThread;

// Runs from the window: the checks and the confirmation before a run, its start on a worker
// thread of its own, the engine's spanning and results views, and the checks after a load (the
// crash sheets and the offer to update dependent tracks). It drives the engine itself, and is the
// engine's run host: the engine asks it for the run's mode and location and has it swap the views.
class CVRunController : public QObject, public CVSpannerRunHost {
    Q_OBJECT

public:
    enum class View { Loading, Main, Spanning, Results };

    // What the rest of the window and the application answer.
    struct Context {
        std::function<bool()> isLoading;
        std::function<bool()> crashedWhileSpanning;
        std::function<bool()> restoreMode;
        std::function<QString()> spanLocation;
        // After a run that keeps nothing: span mode, and no span location.
        std::function<void()> setSpanMode;
        std::function<void()> clearSpanLocation;
        std::function<bool()> mainViewVisible;
        std::function<void(bool resizable, bool closable)> setWindow;
        // The library is read again and the main view shown.
        std::function<void()> reload;
        std::function<void()> reportBug;
        std::function<void()> quit;
    };

    CVRunController(CVSettings *settings, CVLibraryManager *library, CVSheetPresenter *presenter, CVMainWindow *window,
        CVSpanQueue *queue, CVSounds *sounds, Context context, QObject *parent = nullptr);
    // Waits for a run still going: it holds pointers into the window.
    ~CVRunController() override;

    // The engine, once the application delegate has made it: its signals reach the run's views,
    // and it asks this controller about them. The engine outlives the controller.
    void attachEngine(CVMediaSpanner *spanner);
    bool isRunThreadActive() const { return !m_runThread.isNull(); }
    // Waits for the worker, handling events meanwhile (it may wait for the main thread).
    void waitForRun();

    void spanLibrary();
    // The answer to the confirmation: the run starts.
    void closeConfirmSpanRestoreAction();
    // Asks the player to look for the files of these tracks, then reloads.
    void locateTracks(const QList<CVTrack *> &tracks);
    void updateDependentTracks();

    // The views a run swaps in (the engine waits for these).
    void showSpanningView();
    void showResultsAfterRun(const CVRunResults &results);
    void showReloadingView();
    // The results view's way back: the library is read again and the main view shown.
    void leaveResultsView();
    // The loading and main views, swapped in by the window delegate.
    void setShownView(View view) { m_shownView = view; }
    // Safe from any thread (the engine asks from its worker).
    bool isSpanningViewOnScreen() const override { return m_shownView == View::Spanning; }
    bool isResultsViewOnScreen() const override { return m_shownView == View::Results; }
    bool isMainViewShown() const { return m_shownView == View::Main; }

    // After a load: a crash first, then the offer about dependent tracks.
    void showCrashWhileRunningSheet();
    void showCrashSheet();
    void checkForAndOfferToUpdateDependentlySpannedTracks();

    // The View, Edit and Edit Spanning Queue menus with their items (and shortcuts).
    void setMenuEnabled(const QString &name, bool enabled);
    void enableMenusAfterRun();

    // CVSpannerRunHost
    bool restoreMode() const override { return m_context.restoreMode(); }
    QString spanLocation() const override { return m_context.spanLocation(); }
    void showView(CVSpannerRunHost::View view) override;
    void doSetSpanMode() override { m_context.setSpanMode(); }
    void clearSpanLocation() override { m_context.clearSpanLocation(); }

    void refreshDonateStatus();
    void donateAction();
    static QString donationPageUrl();
    CVResultsModel *resultsModel() const { return m_resultsModel; }
    CVRunProgress *runProgress() const { return m_runProgress; }
    CVLauncherEntry *launcherEntry() const { return m_launcherEntry.get(); }
    CVMediaSpanner *spanner() const { return m_spanner; }

Q_SIGNALS:
    // A span is about to start from the span location (the locations pane opens it).
    void spanLocationUsed(const QString &path);
    // A run that reloads the library when done (locating files, updating dependent tracks).
    void reloadingRunStarted();
    // The spanning view is about to take the window's place.
    void spanningViewComing();

private:
    void startRunThread(std::function<void()> work);
    void runThreadFinished();
    void disableMenusForRun();
    void showRunRefusal(const QString &reason);

    CVSettings *m_settings;
    CVLibraryManager *m_library;
    CVSheetPresenter *m_presenter;
    CVMainWindow *m_window;
    CVSpanQueue *m_queue;
    CVSounds *m_sounds;
    Context m_context;
    CVMediaSpanner *m_spanner = nullptr;
    CVResultsModel *m_resultsModel;
    CVRunProgress *m_runProgress = nullptr;
    std::unique_ptr<CVLauncherEntry> m_launcherEntry;
    QPointer<QThread> m_runThread;
    std::atomic<View> m_shownView { View::Loading };
    bool m_overrideFilesNotFoundForSpan = false;
    bool m_overrideEnoughSpaceForSpan = false;
    int m_runTracks = 0;
    double m_runBytes = 0;
};
