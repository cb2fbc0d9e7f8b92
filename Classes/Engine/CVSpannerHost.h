#pragma once

// What the spanning engine asks of the front end that shows it (the window, or the
// command-line tool). Called on the main thread.
class CVSpannerHost {
public:
    virtual ~CVSpannerHost() = default;

    virtual bool isResultsViewOnScreen() const = 0;
    virtual bool isSpanningViewOnScreen() const = 0;
    // Asks the player to quit so that it writes its library; returns without waiting.
    virtual void telliTunesToQuit() = 0;
};
