// corvana: the desktop program.
#include "CVApplicationDelegate.h"
#include "MainWindow/CVScreenshots.h"
#include "Platform/CVAuthorization.h"
#include "Platform/CVInstallLayout.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QFileInfo>

#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(u"Corvana"_s);
    QApplication::setApplicationVersion(QStringLiteral(CORVANA_VERSION));
    QApplication::setOrganizationDomain(u"corvana.org"_s);
    QApplication::setDesktopFileName(u"org.corvana.Corvana"_s);
    QApplication::setQuitOnLastWindowClosed(false); // the window's close goes through the guarded quit

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Corvana: span and restore the media files of a music library."_s);
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption library(u"library"_s, u"Read this library file instead of the default one."_s, u"FILE"_s);
    const QCommandLineOption screenshots(
        u"screenshots"_s, u"Render the window's views to PNG files in DIR, then quit."_s, u"DIR"_s);
    const QCommandLineOption check(u"check"_s,
        u"Load the library, show the main view, print where the helper, the privileged runner and the help were "
        "found, and quit."_s);
    parser.addOptions({ library, screenshots, check });
    parser.process(app);

    CVApplicationDelegate::Options options;
    if (parser.isSet(library)) {
        const QFileInfo file(parser.value(library));
        if (!file.isFile()) {
            std::fprintf(stderr, "No library file at \"%s\".\n", qUtf8Printable(parser.value(library)));
            return 2;
        }
        options.libraryFile = file.absoluteFilePath();
    }
    const bool shots = parser.isSet(screenshots);
    if (shots || parser.isSet(check)) {
        options.answerDialogs = true;
        options.mainViewDelayMs = 0;
    }
    options.startHelper = !parser.isSet(check);
    CVApplicationDelegate delegate(options);
    std::unique_ptr<CVScreenshots> screenshotMaker;
    delegate.awakeFromNib();
    if (delegate.hasQuit())
        return 2;
    if (shots) {
        screenshotMaker = std::make_unique<CVScreenshots>(&delegate, parser.value(screenshots));
        screenshotMaker->begin();
    }
    if (parser.isSet(check)) {
        // What an installation needs, found from the program's own place.
        QObject::connect(
            &delegate, &CVApplicationDelegate::loadFinished, &delegate,
            [&delegate] {
                CVHelperApplicationControl &helper = delegate.helperControl();
                std::printf("main view: shown\nhelper: %s (%s)\nrunner: %s\nhelp: %s\n",
                    qUtf8Printable(helper.packagedHelperPath()),
                    helper.isInstalledHelperCurrent() ? "installed, current" : "not installed",
                    qUtf8Printable(CVAuthorization::defaultRunnerPath()),
                    qUtf8Printable(CVInstallLayout::dataFile(u"help/index.html"_s)));
                std::fflush(stdout);
                delegate.terminate();
            },
            Qt::QueuedConnection);
    }
    delegate.applicationDidFinishLaunching();
    const int status = app.exec();
    if (screenshotMaker && !screenshotMaker->succeeded())
        return 1;
    return status;
}
