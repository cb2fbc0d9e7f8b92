#pragma once

// What the library reader needs of the program around it: the crash facts of the last
// run, the quit-without-saving flag, and the player's save after a crash.
class CVLibraryHost {
public:
    virtual ~CVLibraryHost() = default;

    virtual bool crashedWhileSpanningLastRun() const = 0;
    virtual void setQuitNowWithoutSaving(bool quit) = 0;
    // Has the player write its library, and play on where it was.
    virtual void quitITunesToSaveDatabaseAndRelaunchToSameTrackIfWasPlayling() = 0;
};
