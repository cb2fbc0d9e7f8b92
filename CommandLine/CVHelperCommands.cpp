#include "CVHelperCommands.h"

#include "CVJsonWriter.h"
#include "CVStandardErrorPresenter.h"
#include "Platform/CVHelperApplicationControl.h"

#include <QFileInfo>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

constexpr int kStatusFailed = 1;
constexpr int kStatusError = 2;

} // namespace

QString CVHelperCommands::usage()
{
    return u"helper status | install | launch | quit | repair | login-item on|off"_s;
}

int CVHelperCommands::run(const QStringList &arguments)
{
    const QString command = arguments.value(0);
    if (arguments.size() == 1) {
        if (command == u"status"_s)
            return status();
        if (command == u"install"_s)
            return install();
        if (command == u"launch"_s)
            return launch();
        if (command == u"quit"_s)
            return quit();
        if (command == u"repair"_s)
            return repair();
    }
    if (arguments.size() == 2 && command == u"login-item"_s && (arguments[1] == u"on"_s || arguments[1] == u"off"_s))
        return loginItem(arguments[1]);
    std::fprintf(stderr, "Usage: corvana-cli %s\n", qUtf8Printable(usage()));
    return kStatusError;
}

int CVHelperCommands::status()
{
    CVHelperApplicationControl control;
    CVJsonWriter json(stdout);
    json.beginObject();
    json.key(u"packaged"_s);
    json.value(control.packagedHelperPath());
    json.key(u"packagedPresent"_s);
    json.value(control.isPackagedHelperPresent());
    json.key(u"installed"_s);
    json.value(CVHelperApplicationControl::installedHelperPath());
    json.key(u"installedPresent"_s);
    json.value(QFileInfo(CVHelperApplicationControl::installedHelperExecutable()).isExecutable());
    json.key(u"installedCurrent"_s);
    json.value(control.isInstalledHelperCurrent());
    json.key(u"loginItem"_s);
    json.value(control.inLoginItems());
    const std::optional<QVariantMap> running = control.corvanaHelperStatus();
    json.key(u"running"_s);
    json.value(running.has_value());
    if (running) {
        for (const QString &key : { u"DependentTracks"_s, u"LinksMade"_s, u"TracksUnavailable"_s }) {
            json.key(key);
            json.value(running->value(key).toLongLong());
        }
        json.key(u"Status"_s);
        json.value(running->value(u"Status"_s).toString());
    }
    json.endObject();
    json.newline();
    return 0;
}

int CVHelperCommands::install()
{
    CVHelperApplicationControl control;
    CVStandardErrorPresenter presenter;
    const auto result = control.installOrUpdateCorvanaHelper(
        &presenter, [](const QString &status) { std::fprintf(stderr, "%s\n", qUtf8Printable(status)); });
    switch (result) {
    case CVHelperApplicationControl::InstallResult::UpToDate:
        std::printf(
            "Corvana Helper is up to date at %s\n", qUtf8Printable(CVHelperApplicationControl::installedHelperPath()));
        return 0;
    case CVHelperApplicationControl::InstallResult::Installed:
    case CVHelperApplicationControl::InstallResult::Updated:
        std::printf("Corvana Helper %s at %s\n",
            result == CVHelperApplicationControl::InstallResult::Installed ? "installed" : "updated",
            qUtf8Printable(CVHelperApplicationControl::installedHelperPath()));
        return 0;
    case CVHelperApplicationControl::InstallResult::QuitWithoutSaving:
        break;
    }
    return kStatusFailed;
}

int CVHelperCommands::launch()
{
    CVHelperApplicationControl control;
    QString error;
    if (!control.startInstalledHelper(&error)) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(error));
        return kStatusFailed;
    }
    return 0;
}

int CVHelperCommands::quit()
{
    CVHelperApplicationControl control;
    control.tellCorvanaHelperToQuit();
    if (control.isCorvanaHelperRunning()) {
        std::fprintf(stderr, "Corvana Helper did not quit.\n");
        return kStatusFailed;
    }
    return 0;
}

int CVHelperCommands::repair()
{
    CVHelperApplicationControl control;
    const std::optional<uint> links = control.repairCorvanaHelperLinksNow();
    if (!links) {
        std::fprintf(stderr, "Corvana Helper is not running.\n");
        return kStatusFailed;
    }
    std::printf("%u link%s made\n", *links, *links == 1 ? "" : "s");
    return 0;
}

int CVHelperCommands::loginItem(const QString &state)
{
    CVHelperApplicationControl control;
    control.setCorvanaHelperLoginItem(state == u"on"_s ? 1 : 0);
    if (control.inLoginItems() != (state == u"on"_s)) {
        std::fprintf(stderr, "The autostart entry could not be %s.\n", state == u"on"_s ? "written" : "removed");
        return kStatusFailed;
    }
    return 0;
}
