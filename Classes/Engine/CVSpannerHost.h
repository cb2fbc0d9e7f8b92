#pragma once

#include <QString>

// What the spanning engine asks of the front end that runs it: the window and the application
// delegate, or the command-line tool. The engine calls these on the main thread; the defaults
// are what a front end without those parts answers.
class CVSpannerHost {
public:
    enum class View { Spanning, Results, Loading };

    virtual ~CVSpannerHost() = default;

    // The run's parameters, read when a run starts.
    virtual bool restoreMode() const { return false; }
    virtual QString spanLocation() const { return {}; }

    virtual bool isResultsViewOnScreen() const { return true; }
    virtual bool isSpanningViewOnScreen() const { return true; }
    // Swaps the main view; the engine waits for it.
    virtual void showView(View) { }
    // Asks the player to quit so that it writes its library; returns without waiting.
    virtual void telliTunesToQuit() = 0;
    // After a run: the window goes back to span mode and forgets the location.
    virtual void doSetSpanMode() { }
    virtual void clearSpanLocation() { }

    // The application delegate's part.
    virtual bool crashedWhileSpanningLastRun() const { return false; }
    virtual void setCrashedWhileSpanningLastRun(bool) { }
    virtual void tellCorvanaHelperToQuit() { }
    virtual void launchCorvanaHelper() { }
    // Saves the span history store; true when every record is on disk. A run trashes no
    // original whose record is not.
    virtual bool saveAction() = 0;
    // After a locate run: read the library again and show it.
    virtual void loadCorvanaAndDisplayMainView() { }
};
