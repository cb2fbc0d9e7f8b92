#pragma once

#include "Engine/CVSpannerHost.h"
#include "Library/CVLibraryHost.h"
#include "Platform/CVHelperApplicationControl.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>

class CVFileManagerLink;
class CVInstanceLock;
class CVLibraryManager;
class CVMediaSpanner;
class CVPlayerLink;
class CVSettings;
class CVSheetPresenter;
class CVSpanHistory;
class CVTrack;
class CVUpdateChecker;
class CVWindowDelegate;
class QThread;

// The program's start, its loads and its end: registers the settings, refuses a second instance,
// works out whether the last run crashed (and whether during a span or restore run), runs the
// load sequence on a thread of its own while the window shows the loading view, and guards the
// quit so that no run is cut in half. It owns the span history, the player link and the engine.
class CVApplicationDelegate : public QObject, public CVLibraryHost, public CVSpannerHost {
    Q_OBJECT

public:
    enum class TerminateReply { TerminateNow, TerminateLater, TerminateCancel };
    using InstallResult = CVHelperApplicationControl::InstallResult;

    struct Options {
        // Read this library file instead of looking in the default places.
        QString libraryFile;
        // Sheets and panels are answered without a person (tests, screenshots).
        bool answerDialogs = false;
        // The pause before the main view is shown (a load's last step).
        int mainViewDelayMs = 200;
        // The helper is installed, but not started (a check of an installation).
        bool startHelper = true;
    };

    explicit CVApplicationDelegate(Options options, QObject *parent = nullptr);
    ~CVApplicationDelegate() override;

    // The start: the settings, the instance check, the crash facts and the loading view.
    void awakeFromNib();
    // Then the first load, on its thread.
    void applicationDidFinishLaunching();
    // Starts a load (the first one, a reload, the one after a run).
    void loadCorvanaAndDisplayMainView() override;
    bool isLoadingCorvana() const { return m_loadingCorvana; }

    // The quit, as the desktop's close, the menu and Ctrl+Q ask for it.
    void terminate();
    TerminateReply applicationShouldTerminate();
    void replyToApplicationShouldTerminate(bool shouldTerminate);
    void didEndQuitAlertSheet(int returnCode);
    void didEndQuitAfterCrashWhileSpanningAlertSheet(int returnCode);
    bool shouldQuitNowWithoutSaving() const;
    // What ends the program; tests put a recorder here.
    void setQuitHandler(std::function<void()> handler) { m_quitHandler = std::move(handler); }
    bool hasQuit() const { return m_hasQuit; }
    bool isWaitingToQuit() const { return m_waitingToQuit; }
    bool recoverFromCrashNextLaunch() const { return m_recoverFromCrashNextLaunch; }

    // The helper.
    InstallResult installOrUpdateCorvanaHelper();
    CVHelperApplicationControl &helperControl() { return m_helper; }
    bool isCorvanaHelperRunning();
    // Opens a bug report in the user's mail client.
    void reportBugAction();
    void launchCorvanaHelper() override;
    void tellCorvanaHelperToQuit() override;

    bool crashedLastRun() const { return m_crashedLastRun; }
    bool crashedWhileSpanningLastRun() const override { return m_crashedWhileSpanningLastRun; }
    void setCrashedWhileSpanningLastRun(bool crashed) override { m_crashedWhileSpanningLastRun = crashed; }
    bool quitNowWithoutSaving() const { return m_quitNowWithoutSaving; }
    void setQuitNowWithoutSaving(bool quit) override { m_quitNowWithoutSaving = quit; }
    bool liveRefreshPrefs() const { return m_liveRefreshPrefs; }
    bool allowResize() const { return m_allowResize; }
    void setAllowResize(bool allow) { m_allowResize = allow; }

    CVWindowDelegate *windowDelegate() const { return m_windowDelegate.get(); }
    CVSettings *settings() const { return m_settings.get(); }
    CVLibraryManager *libraryManager() const { return m_library.get(); }
    CVMediaSpanner *spanner() const { return m_spanner.get(); }
    CVPlayerLink *playerLink() const { return m_playerLink.get(); }
    CVFileManagerLink *fileManager() const;
    CVSheetPresenter *presenter() const { return m_presenter.get(); }
    CVSpanHistory *spanHistory() const { return m_history.get(); }
    CVUpdateChecker *updateChecker() const { return m_updateChecker.get(); }
    // Opens the preferences window.
    void showPreferences();

    // A run is under way on the run controller's worker thread.
    bool isRunThreadActive() const;

    // CVSpannerHost (a run's views and the window's mode and location are the run controller's)
    void telliTunesToQuit() override;
    bool saveAction() override;

    // CVLibraryHost
    void quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling() override;

Q_SIGNALS:
    void loadFinished();
    void quitting();

private:
    void runLoadSequence();
    bool crashedByWindowFrame() const;
    // Connects the reactions to the settings that the preferences change.
    void observeSettings();
    void performQuit(bool save);
    // Runs work on the main thread and waits for it (from the load thread).
    void onMainThread(const std::function<void()> &work);

    Options m_options;
    std::unique_ptr<CVInstanceLock> m_instanceLock;
    std::unique_ptr<CVSettings> m_settings;
    std::unique_ptr<CVSheetPresenter> m_presenter;
    std::unique_ptr<CVUpdateChecker> m_updateChecker;
    CVHelperApplicationControl m_helper;
    std::unique_ptr<CVLibraryManager> m_library;
    std::unique_ptr<CVSpanHistory> m_history;
    std::unique_ptr<CVPlayerLink> m_playerLink;
    std::unique_ptr<CVMediaSpanner> m_spanner;
    std::unique_ptr<CVWindowDelegate> m_windowDelegate;
    QPointer<QThread> m_loadThread;
    std::function<void()> m_quitHandler;

    std::atomic<bool> m_loadingCorvana { false };
    std::atomic<bool> m_quitNowWithoutSaving { false };
    bool m_crashedLastRun = false;
    std::atomic<bool> m_crashedWhileSpanningLastRun { false };
    std::atomic<bool> m_waitingToQuit { false };
    std::atomic<bool> m_liveRefreshPrefs { false };
    bool m_recoverFromCrashNextLaunch = false;
    bool m_allowResize = false;
    bool m_terminateReplyPending = false;
    bool m_hasQuit = false;
    bool m_instanceRefused = false;
};
