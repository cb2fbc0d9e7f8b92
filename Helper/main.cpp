#include "CVHCorvanaHelper.h"
#include "CVHTrayItem.h"
#include "Platform/CVHUserDefaults.h"

#include <QApplication>
#include <QSystemTrayIcon>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Without a display the helper does its work all the same, with no tray item.
bool hasDisplay()
{
    return qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY")
        || qEnvironmentVariableIsSet("QT_QPA_PLATFORM");
}

} // namespace

int main(int argc, char *argv[])
{
    const bool gui = hasDisplay();
    std::unique_ptr<QCoreApplication> app;
    if (gui) {
        auto *application = new QApplication(argc, argv);
        application->setQuitOnLastWindowClosed(false);
        app.reset(application);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName(u"Corvana Helper"_s);
    QCoreApplication::setOrganizationName(u"Corvana"_s);

    CVHCorvanaHelper helper;
    switch (helper.start()) {
    case CVHCorvanaHelper::StartResult::Running:
        break;
    case CVHCorvanaHelper::StartResult::NotNeeded:
        return 0;
    case CVHCorvanaHelper::StartResult::AlreadyRunning:
    case CVHCorvanaHelper::StartResult::NoSessionBus:
        return 1;
    }
    std::unique_ptr<CVHTrayItem> tray;
    if (gui && CVHUserDefaults::standardUserDefaults().integerForKey(CVHSettingsKey::ShowInMenubar) == 1
        && QSystemTrayIcon::isSystemTrayAvailable()) {
        tray = std::make_unique<CVHTrayItem>(&helper);
        tray->show();
    }
    return app->exec();
}
