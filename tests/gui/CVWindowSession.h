#pragma once

#include "CVApplicationDelegate.h"
#include "CVLibraryGenerator.h"
#include "CVTestEnvironment.h"

#include <QHash>
#include <QStringList>

#include <memory>

// One start of the window in a fresh test environment: a generated library (with its media
// files) at the default place, dialogs answered by the test, the quit recorded instead of done.
class CVWindowSession : public CVTestEnvironment {
public:
    struct Options {
        int tracks = 300;
        bool start = true; // awakeFromNib, the first load, the main view
        // As root, runs are allowed as if the user had said so (tests run as root on some machines).
        bool allowRoot = true;
        // Bytes of each media file (0: a few kB).
        qint64 mediaFileBytes = 0;
        // Where the media folder lies in the home ("<mediaFolder>/iTunes Media").
        QString mediaFolder = QStringLiteral("Music/iTunes");
        // The program's pause before the main view (none, to keep the tests quick).
        int mainViewDelayMs = 0;
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

    // Before the window starts: spans the tracks of a predicate with the engine alone, and
    // returns their persistent IDs.
    QStringList spanBeforeStart(const QString &predicate, const QString &to);
    // Before the window starts: the player points these spanned tracks at their old places,
    // where a link leads to the file, as Corvana Helper leaves dependent tracks.
    void makeDependentBeforeStart(const QStringList &persistentIDs);
    // The player's locations in the library file, by persistent ID.
    QHash<QString, QString> libraryLocations() const;
    CVLibraryGeneratorResult generated;
    int quits = 0;

private:
    Options m_options;
    std::unique_ptr<CVApplicationDelegate> m_app;
};
