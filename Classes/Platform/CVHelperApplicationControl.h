#pragma once

#include <QString>
#include <QVariantMap>

#include <functional>
#include <optional>

class CVPresenter;

// What the main program does with Corvana Helper: installs or updates its copy in the
// application support folder, starts it, asks it to quit over the session bus, and keeps its
// autostart entry. No widgets: the window and corvana-cli both use it.
//
// The packaged helper is a folder "Corvana Helper" holding the executable and an "Info.ini"
// whose bytes change with every build of the helper; the installed copy is the same folder
// under the application support folder.
class CVHelperApplicationControl {
public:
    enum class InstallResult { UpToDate, Installed, Updated, QuitWithoutSaving };

    static constexpr auto BusName = "org.corvana.CorvanaHelper";
    static constexpr auto ObjectPath = "/org/corvana/CorvanaHelper";
    static constexpr auto Interface = "org.corvana.CorvanaHelper1";
    static constexpr auto BundleName = "Corvana Helper";
    static constexpr auto ExecutableName = "corvana-helper";
    static constexpr auto InfoFileName = "Info.ini";
    // Names the packaged helper folder instead of the places looked at by default.
    static constexpr auto PackagedHelperVariable = "CORVANA_HELPER_BUNDLE";

    CVHelperApplicationControl();

    // Beside the running program ("<dir>/Corvana Helper"), else in the installed layout
    // ("<dir>/../libexec/corvana/Corvana Helper"), which the build tree copies.
    static QString defaultPackagedHelperPath();
    QString packagedHelperPath() const { return m_packagedPath; }
    void setPackagedHelperPath(const QString &path) { m_packagedPath = path; }
    bool isPackagedHelperPresent() const;

    // "<application support folder>/Corvana Helper".
    static QString installedHelperPath();
    static QString installedHelperExecutable();
    bool isInstalledHelperCurrent() const;

    // At every launch, before anything else: the helper is copied when its metadata differs
    // from the installed copy's (any change of version or build, a downgrade too). Failures
    // are put to the user through the presenter; QuitWithoutSaving means the program must
    // stop now.
    InstallResult installOrUpdateCorvanaHelper(
        CVPresenter *presenter, const std::function<void(const QString &status)> &showStatus);
    // The user chose "Quit & Report a Bug" at the last failed installation.
    bool reportBugRequested() const { return m_reportBugRequested; }

    // Starts the installed helper on its own and returns once it has started; nothing when
    // no copy is installed.
    void launchCorvanaHelper();
    bool startInstalledHelper(QString *error, qint64 *pid = nullptr);
    // Asks a running helper to quit and waits (a few seconds at most) until it has let go of
    // its bus name, so that a launch right after is not refused as a second instance.
    void tellCorvanaHelperToQuit();
    bool isCorvanaHelperRunning();
    // The running helper's status properties (DependentTracks, LinksMade, TracksUnavailable,
    // Status); none when it is not running.
    std::optional<QVariantMap> corvanaHelperStatus();
    // Asks the running helper to read the span history again and repair links now.
    std::optional<uint> repairCorvanaHelperLinksNow();

    // The helper's autostart entry (the session's login items).
    bool inLoginItems() const;
    bool addToLoginItems();
    bool removeFromLoginItems();
    // Segment 1 adds the entry unless present; any other removes it if present.
    void setCorvanaHelperLoginItem(int segment);

private:
    bool copyPackagedHelper(const QString &destination, QString *error) const;

    QString m_packagedPath;
    bool m_reportBugRequested = false;
};
