#include "CVWindowSession.h"

#include "CVLibraryGenerator.h"
#include "CVSpanSession.h"
#include "Engine/CVLibraryFilePlayerLink.h"
#include "Engine/CVMediaSpanner.h"
#include "Library/CVLibraryFileReader.h"
#include "Library/CVSpanHistory.h"
#include "Library/CVTrack.h"

#include <QDir>
#include <QSignalSpy>
#include <QTest>

#include <unistd.h>

using namespace Qt::StringLiterals;

CVWindowSession::CVWindowSession(Options options)
    : m_options(options)
{
    CVLibraryGeneratorOptions generator;
    generator.tracks = options.tracks;
    generator.seed = 11;
    generator.mediaRoot = home.filePath(options.mediaFolder);
    generator.secondDrive = home.filePath(u"Volumes/Archive"_s);
    generator.createMediaFiles = true;
    generator.mediaFileBytes = options.mediaFileBytes;
    QDir().mkpath(home.filePath(u"Music/iTunes"_s));
    QDir().mkpath(generator.mediaRoot);
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
    if (options.start) {
        awake();
        launch();
    }
}

CVWindowSession::~CVWindowSession()
{
    m_app.reset();
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
        options.mainViewDelayMs = m_options.mainViewDelayMs;
        m_app = std::make_unique<CVApplicationDelegate>(options);
        m_app->setQuitHandler([this] { ++quits; });
    }
    return *m_app;
}

void CVWindowSession::awake()
{
    app().awakeFromNib();
    if (::geteuid() == 0 && m_options.allowRoot && app().spanner())
        app().spanner()->setAllowRoot(true);
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

QStringList CVWindowSession::spanBeforeStart(const QString &predicate, const QString &to)
{
    CVSpanSession span(libraryFile());
    span.spanner.setAllowRoot(true);
    CVLibraryFilePlayerLink link(libraryFile(), CVSpanHistory::applicationSupportFolder(), &span.files);
    span.usePlayerLink(&link);
    const QList<CVTrack *> tracks = span.select(predicate);
    span.span(tracks, to);
    QStringList ids;
    for (const CVShownResultRow &row : span.spanner.lastResults().rows)
        if (row.icon == CVResultIcon::FullSuccess)
            ids.append(row.trackObject->text(CVAttr::PersistentID));
    return ids;
}

void CVWindowSession::makeDependentBeforeStart(const QStringList &persistentIDs)
{
    QHash<QString, QString> spanPaths;
    {
        CVSpanSession span(libraryFile());
        for (const QString &pid : persistentIDs)
            if (CVTrack *t = span.track(pid))
                spanPaths.insert(pid, t->text(CVAttr::SpanLocation) + u'\n' + t->text(CVAttr::OriginalLocation));
    }
    CVLibraryFilePlayerLink link(libraryFile(), CVSpanHistory::applicationSupportFolder(), nullptr);
    for (auto [pid, paths] : spanPaths.asKeyValueRange()) {
        const QString span = paths.section(u'\n', 0, 0);
        const QString original = paths.section(u'\n', 1);
        QDir().mkpath(QFileInfo(original).path());
        if (!QFile::link(span, original) || !link.setTrackLocation(pid, original))
            qFatal("a dependent track could not be made");
    }
    if (!link.applyJournal())
        qFatal("the library file could not be written");
}

QHash<QString, QString> CVWindowSession::libraryLocations() const
{
    CVLibraryContents contents;
    CVLibraryFileReader().readFile(libraryFile(), contents);
    QHash<QString, QString> locations;
    for (const CVTrack &track : contents.tracks)
        locations.insert(track.text(CVAttr::PersistentID), track.text(CVAttr::Location));
    return locations;
}
