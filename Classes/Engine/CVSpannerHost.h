#pragma once

// What the spanning engine asks of the application that runs it: the player, the crash flags,
// the helper, the history's save and the load. The window's part of a run is a
// CVSpannerRunHost. The engine calls these on the main thread.
class CVSpannerHost {
public:
    virtual ~CVSpannerHost() = default;

    // Asks the player to quit so that it writes its library; returns without waiting.
    virtual void telliTunesToQuit() = 0;

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
