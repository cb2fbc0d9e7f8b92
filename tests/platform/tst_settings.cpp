#include "CVTestHome.h"
#include "Platform/CVSettings.h"

#include <QSignalSpy>
#include <QtTest>

using namespace Qt::StringLiterals;

class TestSettings : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_home = std::make_unique<CVTestHome>(); }
    void cleanup() { m_home.reset(); }

    void freshSettingsReadEveryDefaultWithoutWriting()
    {
        {
            CVSettings settings;
            QCOMPARE(settings.filePath(), m_home->path() + u"/.config/Corvana/Corvana.conf"_s);
            settings.registerStandardDefaults();
            settings.applyLaunchRepairs();
            QVERIFY(settings.boolValue(u"CVFirstRun"_s));
            QVERIFY(settings.boolValue(u"CVDidCrashLastRun"_s));
            QCOMPARE(settings.realValue(u"CVBrowserTopFrameHeight"_s), 177.0);
            QCOMPARE(settings.realValue(u"CVBrowserTopFrameHeightBeforeSquishing"_s), 177.0);
            QCOMPARE(settings.realValue(u"CVBrowserLeftFrameWidth"_s), 300.0);
            QCOMPARE(settings.realValue(u"CVPlaylistsLeftFrameWidth"_s), 250.0);
            QCOMPARE(settings.realValue(u"CVLocationsRightFrameWidthBeforeSquishing"_s), 250.0);
            QVERIFY(!settings.boolValue(u"CVPlaylistsAreHidden"_s));
            QVERIFY(!settings.boolValue(u"CVLocationsAreHidden"_s));
            QCOMPARE(settings.integerValue(u"SUScheduledCheckInterval"_s), 86400);
            QCOMPARE(settings.stringListValue(u"CVSearchFields"_s),
                (QStringList { u"Genre"_s, u"Artist"_s, u"Album"_s, u"Name"_s }));
            QCOMPARE(settings.stringValue(u"CVDefaultBrowserMedia"_s), u"Music"_s);
            QVERIFY(!settings.boolValue(u"CVRememberLastBrowserMedia"_s));
            for (const QString &key : { u"CVGroupCompilationsInBrowser"_s, u"CVUseAlbumArtistsInBrowser"_s,
                     u"CVColumnBrowserOnTop"_s, u"CVCubeAnimateWindow"_s, u"CVPlaySpanQueueDropSounds"_s,
                     u"CVAutosaveSpanningQueue"_s, u"CVAutosaveSpanLocation"_s, u"CVClearSpanLocationAfterSpan"_s })
                QVERIFY2(settings.boolValue(key), qPrintable(key));
            QCOMPARE(settings.integerValue(u"CVFullSpanReattempts"_s), 2);
            QCOMPARE(settings.stringListValue(u"CVFilterPathOrder"_s),
                (QStringList { u"Search"_s, u"Span Filter"_s, u"Media Type"_s, u"Playlist"_s, u"Location"_s }));
            // Keys without a default read as nothing.
            QVERIFY(!settings.boolValue(u"CVIsSpanning"_s));
            QVERIFY(settings.stringValue(u"CVLastSpanLocation"_s).isEmpty());
            QVERIFY(settings.mapValue(u"CVLastTracksSpanned"_s).isEmpty());
            QVERIFY(!settings.contains(u"CVFirstRun"_s));
            settings.synchronize();
        }
        QVERIFY(!QFile::exists(m_home->path() + u"/.config/Corvana/Corvana.conf"_s)
            || QSettings(m_home->path() + u"/.config/Corvana/Corvana.conf"_s, QSettings::IniFormat)
                   .allKeys()
                   .isEmpty());
    }

    void typedValuesSurviveARestart()
    {
        QVariantMap lastTracks { { u"ABCDEF0123456789"_s, u"/Users/ann/Music/a b.mp3"_s } };
        {
            CVSettings settings;
            settings.registerStandardDefaults();
            settings.setValue(u"CVFirstRun"_s, false);
            settings.setValue(u"CVIsSpanning"_s, true);
            settings.setValue(u"CVBrowserLeftFrameWidth"_s, 412.5);
            settings.setValue(u"CVFullSpanReattempts"_s, 5);
            settings.setValue(u"CVSearchFields"_s, QStringList { u"Name"_s });
            settings.setValue(u"CVExpandedLocations"_s, QStringList {});
            settings.setValue(u"CVSpanLocationHistory"_s, QStringList { u"/Volumes/A, B"_s, u"/mnt/c"_s });
            settings.setValue(u"CVLastTracksSpanned"_s, lastTracks);
            settings.setValue(u"CVSavedSpanningQueue"_s, QByteArray("\x00\x01{\"a\":1}", 9));
            settings.setValue(u"CVSavedSpanLocation"_s, u"/media/ann/Drüve \"x\""_s);
            settings.synchronize();
        }
        CVSettings settings;
        settings.registerStandardDefaults();
        QVERIFY(!settings.boolValue(u"CVFirstRun"_s));
        QVERIFY(settings.boolValue(u"CVIsSpanning"_s));
        QCOMPARE(settings.realValue(u"CVBrowserLeftFrameWidth"_s), 412.5);
        QCOMPARE(settings.integerValue(u"CVFullSpanReattempts"_s), 5);
        QCOMPARE(settings.stringListValue(u"CVSearchFields"_s), QStringList { u"Name"_s });
        QVERIFY(settings.contains(u"CVExpandedLocations"_s));
        QCOMPARE(settings.stringListValue(u"CVExpandedLocations"_s), QStringList {});
        QCOMPARE(
            settings.stringListValue(u"CVSpanLocationHistory"_s), (QStringList { u"/Volumes/A, B"_s, u"/mnt/c"_s }));
        QCOMPARE(settings.mapValue(u"CVLastTracksSpanned"_s), lastTracks);
        QCOMPARE(settings.dataValue(u"CVSavedSpanningQueue"_s), QByteArray("\x00\x01{\"a\":1}", 9));
        QCOMPARE(settings.stringValue(u"CVSavedSpanLocation"_s), u"/media/ann/Drüve \"x\""_s);
    }

    void launchRepairs_data()
    {
        QTest::addColumn<QStringList>("order");
        QTest::addColumn<bool>("replaced");
        QTest::newRow("four") << QStringList { u"Search"_s, u"Span Filter"_s, u"Media Type"_s, u"Playlist"_s } << true;
        QTest::newRow("six") << QStringList { u"Search"_s, u"Span Filter"_s, u"Media Type"_s, u"Playlist"_s,
            u"Location"_s, u"Search"_s }
                             << true;
        QTest::newRow("five reordered") << QStringList { u"Location"_s, u"Playlist"_s, u"Media Type"_s,
            u"Span Filter"_s, u"Search"_s }
                                        << false;
    }
    void launchRepairs()
    {
        QFETCH(QStringList, order);
        QFETCH(bool, replaced);
        {
            CVSettings settings;
            settings.setValue(u"CVFilterPathOrder"_s, order);
            settings.setValue(u"CVBrowserTopFrameHeight"_s, 0);
            settings.setValue(u"CVBrowserTopFrameHeightBeforeSquishing"_s, -3);
            settings.setValue(u"CVBrowserLeftFrameWidth"_s, 0);
            settings.setValue(u"CVPlaylistsLeftFrameWidth"_s, 0);
            settings.setValue(u"CVLocationsRightFrameWidth"_s, -1);
            settings.synchronize();
        }
        CVSettings settings;
        settings.registerStandardDefaults();
        settings.applyLaunchRepairs();
        const QStringList standard { u"Search"_s, u"Span Filter"_s, u"Media Type"_s, u"Playlist"_s, u"Location"_s };
        QCOMPARE(settings.stringListValue(u"CVFilterPathOrder"_s), replaced ? standard : order);
        QCOMPARE(settings.realValue(u"CVBrowserTopFrameHeight"_s), 155.0); // not the registered 177
        QCOMPARE(settings.realValue(u"CVBrowserTopFrameHeightBeforeSquishing"_s), 155.0);
        QCOMPARE(settings.realValue(u"CVBrowserLeftFrameWidth"_s), 300.0);
        QCOMPARE(settings.realValue(u"CVPlaylistsLeftFrameWidth"_s), 0.0); // 0 is accepted here
        QCOMPARE(settings.realValue(u"CVLocationsRightFrameWidth"_s), 250.0);
    }

    void obsoleteKeysAreDeleted()
    {
        CVSettings settings;
        settings.registerStandardDefaults();
        const QStringList first { u"NSTableView Columns CVLibraryBrowserTrackListTable"_s,
            u"NSWindow Frame CVItemInformationWindow"_s, u"CVAvoidEmptyLists"_s, u"CVReattemptDependentTracks"_s };
        const QStringList second { u"NSTableView Columns CVSpanningQueueTable"_s,
            u"NSTableView Sort Ordering CVPlaylistTrackListTable"_s, u"CVMainTopFrameHeight"_s,
            u"CVPlaylistLeftFrameWidth"_s };
        for (const QString &key : first + second)
            settings.setValue(key, u"old"_s);
        settings.setValue(u"CVTrackListSmartColumnPosition"_s, 1);
        settings.setValue(u"NSWindow Frame CVAboutWindow"_s, u"kept"_s);
        settings.applyLaunchRepairs();
        for (const QString &key : first + second)
            QVERIFY2(!settings.contains(key), qPrintable(key));
        QCOMPARE(settings.integerValue(u"CVTrackListSmartColumnPosition"_s), 0);
        QCOMPARE(settings.stringValue(u"NSWindow Frame CVAboutWindow"_s), u"kept"_s);
    }

    void announcesChanges()
    {
        CVSettings settings;
        settings.registerStandardDefaults();
        QSignalSpy spy(&settings, &CVSettings::valueChanged);
        settings.setValue(u"CVColumnBrowserOnTop"_s, false);
        settings.setValue(u"CVColumnBrowserOnTop"_s, false); // no change, no signal
        settings.remove(u"CVColumnBrowserOnTop"_s);
        settings.remove(u"CVColumnBrowserOnTop"_s);
        QCOMPARE(spy.size(), 2);
        QCOMPARE(spy.at(0).at(0).toString(), u"CVColumnBrowserOnTop"_s);
        QVERIFY(settings.boolValue(u"CVColumnBrowserOnTop"_s)); // back to the default
    }

private:
    std::unique_ptr<CVTestHome> m_home;
};

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_settings.moc"
