#pragma once

#include <QString>

// What the span history operations need to know of the run around them: the engine and
// the window provide it; the command-line tool and the tests give fixed answers.
class CVSpanRunState {
public:
    virtual ~CVSpanRunState() = default;

    virtual bool restoreMode() const = 0;
    virtual QString spanLocation() const = 0;
    virtual bool isSpanningOrRestoringTracks() const = 0;
    virtual bool crashedWhileSpanningLastRun() const = 0;
};

class CVFixedSpanRunState : public CVSpanRunState {
public:
    bool restore = false;
    QString location;
    bool running = false;
    bool crashed = false;

    bool restoreMode() const override { return restore; }
    QString spanLocation() const override { return location; }
    bool isSpanningOrRestoringTracks() const override { return running; }
    bool crashedWhileSpanningLastRun() const override { return crashed; }
};
