#pragma once

#include "CVApplicationDelegate.h"
#include "CVLibraryGenerator.h"
#include "CVTestHome.h"

#include <QStringList>

#include <memory>

// One start of the window in a fresh temporary home: a generated library (with its media files)
// at the default place, dialogs answered by the test, the quit recorded instead of done.
class CVWindowSession {
public:
    struct Options {
        int tracks = 300;
        bool start = true; // awakeFromNib, the first load, the main view
    };

    explicit CVWindowSession(Options options);
    CVWindowSession()
        : CVWindowSession(Options())
    {
    }
    ~CVWindowSession();

    QString libraryFile() const;
    // Makes the program; awakeFromNib and the first load follow when asked.
    CVApplicationDelegate &app();
    void awake();
    void launch();
    // Waits for the load under way to end; false when it did not.
    bool waitForLoad();
    // A second start in the same home (after quitting the first).
    void restart();

    CVTestHome home;
    CVLibraryGeneratorResult generated;
    QStringList log;
    int quits = 0;

private:
    Options m_options;
    std::unique_ptr<CVApplicationDelegate> m_app;
};
