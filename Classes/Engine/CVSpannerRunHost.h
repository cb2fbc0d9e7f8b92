#pragma once

#include <QString>

// What the spanning engine asks of whoever shows its runs: the run's parameters, its views, and
// the window after a run. In the program that is the run controller; the command-line tool and
// tests answer for themselves. Called on the main thread, except the two view questions, which the
// engine also asks from its worker. The defaults are what a front end without a window answers.
class CVSpannerRunHost {
public:
    enum class View { Spanning, Results, Loading };

    virtual ~CVSpannerRunHost() = default;

    // The run's parameters, read when a run starts.
    virtual bool restoreMode() const { return false; }
    virtual QString spanLocation() const { return {}; }

    virtual bool isResultsViewOnScreen() const { return true; }
    virtual bool isSpanningViewOnScreen() const { return true; }
    // Swaps the main view; the engine waits for it.
    virtual void showView(View) { }
    // After a run: the window goes back to span mode and forgets the location.
    virtual void doSetSpanMode() { }
    virtual void clearSpanLocation() { }
};
