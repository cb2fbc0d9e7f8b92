#include "CVTestHome.h"
#include "Platform/CVHUserDefaults.h"
#include "Platform/CVSettings.h"

#include <QDirIterator>
#include <QMetaEnum>
#include <QRegularExpression>
#include <QSet>
#include <QSignalSpy>
#include <QtTest>

#include <functional>

using namespace Qt::StringLiterals;

namespace {

QMetaType::Type metaTypeOf(CVSettings::Type type)
{
    switch (type) {
    case CVSettings::Type::Bool:
        return QMetaType::Bool;
    case CVSettings::Type::Integer:
        return QMetaType::Int;
    case CVSettings::Type::Real:
        return QMetaType::Double;
    case CVSettings::Type::String:
        return QMetaType::QString;
    case CVSettings::Type::StringList:
        return QMetaType::QStringList;
    case CVSettings::Type::Map:
        return QMetaType::QVariantMap;
    case CVSettings::Type::Data:
        return QMetaType::QByteArray;
    }
    return QMetaType::UnknownType;
}

} // namespace

class TestSettings : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_home = std::make_unique<CVTestHome>(); }
    void cleanup() { m_home.reset(); }

    void keyTableIsCompleteAndSane()
    {
        const auto table = CVSettings::keyTable();
        QCOMPARE(table.size(), std::size_t(CVSettingsKey::Count));
        QSet<QString> names;
        for (std::size_t i = 0; i < table.size(); ++i) {
            const CVSettings::KeyInfo &entry = table[i];
            // info() indexes the table by key, so every entry must sit at its key's place.
            QCOMPARE(std::size_t(entry.key), i);
            QVERIFY(!entry.name.isEmpty());
            QVERIFY2(!names.contains(entry.name), qPrintable(entry.name));
            names.insert(entry.name);
            if (entry.defaultValue.isValid())
                QVERIFY2(entry.defaultValue.typeId() == metaTypeOf(entry.type), qPrintable(entry.name));
        }
    }

    // Every key's text lives in its table alone (the user's settings, Corvana Helper's): code
    // that spelt one out would read or write past the table's types and defaults.
    void noCodeSpellsOutAKey()
    {
        QSet<QString> names;
        for (const CVSettings::KeyInfo &entry : CVSettings::keyTable())
            names.insert(entry.name);
        for (const CVHUserDefaults::KeyInfo &entry : CVHUserDefaults::keyTable())
            names.insert(entry.name);
        const QRegularExpression literal(uR"re("((?:CV|SU|NS|Player)[A-Za-z ]*)")re"_s);
        QStringList offenders;
        forEachSourceLine([&](const QString &where, const QString &line) {
            for (auto match = literal.globalMatch(line); match.hasNext();)
                if (names.contains(match.next().captured(1)))
                    offenders << where;
        });
        QVERIFY2(offenders.isEmpty(), qPrintable(offenders.join(u", "_s)));
    }

    // Release builds do not stop on a key read as another type than its own; the call sites
    // are checked here instead.
    void everyKeyIsReadAsItsOwnType()
    {
        const QMetaEnum keys = QMetaEnum::fromType<CVSettingsKey>();
        const QHash<QString, QList<CVSettings::Type>> readers {
            { u"bool"_s, { CVSettings::Type::Bool } },
            { u"integer"_s, { CVSettings::Type::Integer } },
            { u"real"_s, { CVSettings::Type::Real, CVSettings::Type::Integer } },
            { u"string"_s, { CVSettings::Type::String } },
            { u"stringList"_s, { CVSettings::Type::StringList } },
            { u"map"_s, { CVSettings::Type::Map } },
            { u"data"_s, { CVSettings::Type::Data } },
        };
        const QRegularExpression read(uR"re(\b(\w+)Value\(\s*CVSettingsKey::(\w+)\))re"_s);
        QStringList offenders;
        int reads = 0;
        forEachSourceLine([&](const QString &where, const QString &line) {
            for (auto it = read.globalMatch(line); it.hasNext();) {
                const QRegularExpressionMatch match = it.next();
                if (!readers.contains(match.captured(1)))
                    continue;
                ++reads;
                bool known = false;
                const auto key = CVSettingsKey(keys.keyToValue(match.captured(2).toLatin1().constData(), &known));
                if (!known || !readers.value(match.captured(1)).contains(CVSettings::info(key).type))
                    offenders << where + u" "_s + match.captured(0);
            }
        });
        QVERIFY(reads > 50);
        QVERIFY2(offenders.isEmpty(), qPrintable(offenders.join(u", "_s)));
    }

    void freshSettingsReadEveryDefaultWithoutWriting()
    {
        {
            CVSettings settings;
            QCOMPARE(settings.filePath(), m_home->path() + u"/.config/Corvana/Corvana.conf"_s);
            settings.applyLaunchRepairs();
            for (const CVSettings::KeyInfo &entry : CVSettings::keyTable()) {
                QVERIFY2(!settings.contains(entry.key), qPrintable(entry.name));
                QCOMPARE(settings.value(entry.key), entry.defaultValue);
            }
            // Keys without a default read as nothing.
            QVERIFY(!settings.boolValue(CVSettingsKey::UserClickedDonate));
            QCOMPARE(settings.integerValue(CVSettingsKey::SULastCheckTime), 0);
            QVERIFY(settings.stringValue(CVSettingsKey::LastSpanLocation).isEmpty());
            QVERIFY(settings.mapValue(CVSettingsKey::LastTracksSpanned).isEmpty());
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
            settings.setValue(CVSettingsKey::FirstRun, false);
            settings.setValue(CVSettingsKey::IsSpanning, true);
            settings.setValue(CVSettingsKey::BrowserLeftFrameWidth, 412.5);
            settings.setValue(CVSettingsKey::FullSpanReattempts, 5);
            settings.setValue(CVSettingsKey::SearchFields, QStringList { u"Name"_s });
            settings.setValue(CVSettingsKey::PlaylistTrackListHiddenColumns, QStringList {});
            settings.setValue(CVSettingsKey::SpanLocationHistory, QStringList { u"/Volumes/A, B"_s, u"/mnt/c"_s });
            settings.setValue(CVSettingsKey::LastTracksSpanned, lastTracks);
            settings.setValue(CVSettingsKey::SavedSpanningQueue, QByteArray("\x00\x01{\"a\":1}", 9));
            settings.setValue(CVSettingsKey::SavedSpanLocation, u"/media/ann/Drüve \"x\""_s);
            settings.synchronize();
        }
        CVSettings settings;
        QVERIFY(!settings.boolValue(CVSettingsKey::FirstRun));
        QVERIFY(settings.boolValue(CVSettingsKey::IsSpanning));
        QCOMPARE(settings.realValue(CVSettingsKey::BrowserLeftFrameWidth), 412.5);
        QCOMPARE(settings.integerValue(CVSettingsKey::FullSpanReattempts), 5);
        QCOMPARE(settings.stringListValue(CVSettingsKey::SearchFields), QStringList { u"Name"_s });
        QVERIFY(settings.contains(CVSettingsKey::PlaylistTrackListHiddenColumns));
        QCOMPARE(settings.stringListValue(CVSettingsKey::PlaylistTrackListHiddenColumns), QStringList {});
        QCOMPARE(settings.stringListValue(CVSettingsKey::SpanLocationHistory),
            (QStringList { u"/Volumes/A, B"_s, u"/mnt/c"_s }));
        QCOMPARE(settings.mapValue(CVSettingsKey::LastTracksSpanned), lastTracks);
        QCOMPARE(settings.dataValue(CVSettingsKey::SavedSpanningQueue), QByteArray("\x00\x01{\"a\":1}", 9));
        QCOMPARE(settings.stringValue(CVSettingsKey::SavedSpanLocation), u"/media/ann/Drüve \"x\""_s);
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
            settings.setValue(CVSettingsKey::FilterPathOrder, order);
            settings.setValue(CVSettingsKey::BrowserTopFrameHeight, 0);
            settings.setValue(CVSettingsKey::BrowserTopFrameHeightBeforeSquishing, -3);
            settings.setValue(CVSettingsKey::BrowserLeftFrameWidth, 0);
            settings.setValue(CVSettingsKey::PlaylistsLeftFrameWidth, 0);
            settings.setValue(CVSettingsKey::LocationsRightFrameWidth, -1);
            settings.synchronize();
        }
        CVSettings settings;
        settings.applyLaunchRepairs();
        const QStringList standard { u"Search"_s, u"Span Filter"_s, u"Media Type"_s, u"Playlist"_s, u"Location"_s };
        QCOMPARE(settings.stringListValue(CVSettingsKey::FilterPathOrder), replaced ? standard : order);
        QCOMPARE(settings.realValue(CVSettingsKey::BrowserTopFrameHeight), 155.0); // not the registered 177
        QCOMPARE(settings.realValue(CVSettingsKey::BrowserTopFrameHeightBeforeSquishing), 155.0);
        QCOMPARE(settings.realValue(CVSettingsKey::BrowserLeftFrameWidth), 300.0);
        QCOMPARE(settings.realValue(CVSettingsKey::PlaylistsLeftFrameWidth), 0.0); // 0 is accepted here
        QCOMPARE(settings.realValue(CVSettingsKey::LocationsRightFrameWidth), 250.0);
    }

    void obsoleteKeysAreDeleted()
    {
        const QStringList first { u"NSTableView Columns CVLibraryBrowserTrackListTable"_s,
            u"NSWindow Frame CVItemInformationWindow"_s, u"CVAvoidEmptyLists"_s, u"CVReattemptDependentTracks"_s };
        const QStringList second { u"NSTableView Columns CVSpanningQueueTable"_s, u"CVMainTopFrameHeight"_s,
            u"CVPlaylistLeftFrameWidth"_s };
        {
            // Written as an earlier version did, past the key table.
            QSettings old(CVSettings::defaultFilePath(), QSettings::IniFormat);
            for (const QString &key : first + second)
                old.setValue(key, u"old"_s);
        }
        CVSettings settings;
        settings.setValue(CVSettingsKey::PlaylistTrackListSortOrdering, u"old"_s);
        settings.setValue(CVSettingsKey::ColumnDisplayOptionsWindowFrame, u"old"_s);
        settings.setValue(CVSettingsKey::TrackListSmartColumnPosition, 1);
        settings.setValue(CVSettingsKey::AboutWindowFrame, u"kept"_s);
        settings.applyLaunchRepairs();
        settings.synchronize();
        const QStringList stored = settings.storedKeys();
        for (const QString &key : first + second)
            QVERIFY2(!stored.contains(key), qPrintable(key));
        QVERIFY(!settings.contains(CVSettingsKey::PlaylistTrackListSortOrdering));
        QVERIFY(!settings.contains(CVSettingsKey::ColumnDisplayOptionsWindowFrame));
        QCOMPARE(settings.integerValue(CVSettingsKey::TrackListSmartColumnPosition), 0);
        QCOMPARE(settings.stringValue(CVSettingsKey::AboutWindowFrame), u"kept"_s);
    }

    void announcesChanges()
    {
        CVSettings settings;
        QSignalSpy spy(&settings, &CVSettings::valueChanged);
        settings.setValue(CVSettingsKey::ColumnBrowserOnTop, false);
        settings.setValue(CVSettingsKey::ColumnBrowserOnTop, false); // no change, no signal
        settings.remove(CVSettingsKey::ColumnBrowserOnTop);
        settings.remove(CVSettingsKey::ColumnBrowserOnTop);
        QCOMPARE(spy.size(), 2);
        QCOMPARE(spy.at(0).at(0).value<CVSettingsKey>(), CVSettingsKey::ColumnBrowserOnTop);
        QVERIFY(settings.boolValue(CVSettingsKey::ColumnBrowserOnTop)); // back to the default
    }

    void listenersHearOnlyTheirKeyWhileTheyLive()
    {
        CVSettings settings;
        int heard = 0;
        auto context = std::make_unique<QObject>();
        settings.observe(CVSettingsKey::SearchFields, context.get(), [&] { ++heard; });
        settings.setValue(CVSettingsKey::ColumnBrowserOnTop, false);
        settings.setValue(CVSettingsKey::SearchFields, QStringList { u"Name"_s });
        QCOMPARE(heard, 1);
        context.reset();
        settings.setValue(CVSettingsKey::SearchFields, QStringList { u"Album"_s });
        QCOMPARE(heard, 1);
    }

    void transientValuesAreReadFirstAndNeverWritten()
    {
        {
            CVSettings settings;
            settings.setValue(CVSettingsKey::SearchFields, QStringList { u"Album"_s });
            settings.setTransientValue(CVSettingsKey::SearchFields, QStringList { u"Name"_s });
            QCOMPARE(settings.stringListValue(CVSettingsKey::SearchFields), QStringList { u"Name"_s });
            settings.synchronize();
        }
        QCOMPARE(CVSettings().stringListValue(CVSettingsKey::SearchFields), QStringList { u"Album"_s });
    }

private:
    // Every line of the program's sources outside the key tables, with its file and number.
    static void forEachSourceLine(const std::function<void(const QString &where, const QString &line)> &visit)
    {
        const QDir root(QStringLiteral(CORVANA_TEST_DATA) + u"/../.."_s);
        int files = 0;
        for (const QString &folder : { u"Classes"_s, u"CommandLine"_s, u"Helper"_s }) {
            QDirIterator it(root.filePath(folder), { u"*.cpp"_s, u"*.h"_s }, QDir::Files, QDirIterator::Subdirectories);
            while (it.hasNext()) {
                const QString path = it.next();
                if (path.endsWith(u"Platform/CVSettings.cpp"_s) || path.endsWith(u"Platform/CVHUserDefaults.cpp"_s))
                    continue;
                QFile file(path);
                QVERIFY(file.open(QIODevice::ReadOnly));
                ++files;
                int number = 0;
                for (const QByteArray &line : file.readAll().split('\n')) {
                    ++number;
                    const QString text = QString::fromUtf8(line);
                    if (!text.trimmed().startsWith(u"//"_s))
                        visit(u"%1:%2"_s.arg(root.relativeFilePath(path)).arg(number), text);
                }
            }
        }
        QVERIFY(files > 100);
    }

    std::unique_ptr<CVTestHome> m_home;
};

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_settings.moc"
