#include "CVWindowSession.h"

#include "CVLibraryGenerator.h"
#include "Platform/CVLog.h"

#include <QDir>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

CVWindowSession::CVWindowSession(Options options)
    : m_options(options)
{
    CVLibraryGeneratorOptions generator;
    generator.tracks = options.tracks;
    generator.seed = 11;
    generator.mediaRoot = home.filePath(u"Music/iTunes"_s);
    generator.secondDrive = home.filePath(u"Volumes/Archive"_s);
    generator.createMediaFiles = true;
    QDir().mkpath(home.filePath(u"Music/iTunes"_s));
    if (!CVLibraryGenerator(generator).write(libraryFile(), &generated))
        qFatal("the library could not be written");
    // A helper of the test's own, so that no real helper is installed and started in the background.
    const QString helper = home.filePath(u"Package/Corvana Helper"_s);
    QDir().mkpath(helper);
    QFile script(helper + u"/corvana-helper"_s);
    if (script.open(QIODevice::WriteOnly))
        script.write("#!/bin/sh\nexit 0\n");
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QFile info(helper + u"/Info.ini"_s);
    if (info.open(QIODevice::WriteOnly))
        info.write("[Corvana Helper]\nVersion=test\n");
    info.close();
    qputenv("CORVANA_HELPER_BUNDLE", QFile::encodeName(helper));
    CVLog::setSink([this](const QString &line) { log.append(line); });
    if (options.start) {
        awake();
        launch();
    }
}

CVWindowSession::~CVWindowSession()
{
    m_app.reset();
    CVLog::setSink({});
    qunsetenv("CORVANA_HELPER_BUNDLE");
}

QString CVWindowSession::libraryFile() const
{
    return home.filePath(u"Music/iTunes/iTunes Library.xml"_s);
}

CVApplicationDelegate &CVWindowSession::app()
{
    if (!m_app) {
        CVApplicationDelegate::Options options;
        options.answerDialogs = true;
        options.mainViewDelayMs = 0;
        m_app = std::make_unique<CVApplicationDelegate>(options);
        m_app->setQuitHandler([this] { ++quits; });
    }
    return *m_app;
}

void CVWindowSession::awake()
{
    app().awakeFromNib();
}

void CVWindowSession::launch()
{
    QSignalSpy finished(&app(), &CVApplicationDelegate::loadFinished);
    app().applicationDidFinishLaunching();
    if (!finished.wait(120000))
        qFatal("the first load did not end");
}

bool CVWindowSession::waitForLoad()
{
    if (!app().isLoadingCorvana())
        return true;
    QSignalSpy finished(&app(), &CVApplicationDelegate::loadFinished);
    return finished.wait(120000);
}

void CVWindowSession::restart()
{
    m_app.reset();
    awake();
    launch();
}
