#include "Library/CVFileURL.h"
#include "Library/CVFormatters.h"
#include "Library/CVLibraryManager.h"
#include "Platform/CVVolumes.h"

#include <QTemporaryDir>
#include <QtTest>

#include <ctime>
#include <pwd.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class TestFormatters : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("TZ", "UTC");
        tzset();
    }

    void sizes_data()
    {
        QTest::addColumn<double>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("0") << 0.0 << u"0 bytes"_s;
        QTest::newRow("1") << 1.0 << u"1 byte"_s;
        QTest::newRow("999") << 999.0 << u"999 bytes"_s;
        QTest::newRow("999.9") << 999.9 << u"999 bytes"_s;
        QTest::newRow("1000") << 1000.0 << u"1.00 KB"_s;
        QTest::newRow("1001") << 1001.0 << u"1.00 KB"_s;
        QTest::newRow("1500") << 1500.0 << u"1.50 KB"_s;
        QTest::newRow("MB") << 5234567.0 << u"5.23 MB"_s;
        QTest::newRow("GB") << 1.5e9 << u"1.50 GB"_s;
        // Between 999999995904 and 10^12 it is already terabytes, of the odd divisor.
        QTest::newRow("below TB") << 999999995903.0 << u"1000.00 GB"_s;
        QTest::newRow("TB edge") << 999999995904.0 << u"1.00 TB"_s;
        QTest::newRow("TB") << 2e12 << u"2.00 TB"_s;
    }
    void sizes()
    {
        QFETCH(double, bytes);
        QFETCH(QString, text);
        QCOMPARE(CVFormatters::humanReadableSizeFromBytes(bytes), text);
    }

    void sampleRates()
    {
        QVERIFY(CVFormatters::formatSampleRate(0).isNull());
        QCOMPARE(CVFormatters::formatSampleRate(1), u"1 hert"_s);
        QCOMPARE(CVFormatters::formatSampleRate(999), u"999 hertz"_s);
        QCOMPARE(CVFormatters::formatSampleRate(44100), u"44.100 kHz"_s);
        QCOMPARE(CVFormatters::formatSampleRate(48000), u"48.000 kHz"_s);
        QCOMPARE(CVFormatters::formatSampleRate(2500000), u"2.500 mHz"_s);
        QCOMPARE(CVFormatters::formatSampleRate(3e9), u"3.000 gHz"_s);
        QCOMPARE(CVFormatters::formatSampleRate(999999995904.0), u"1.000 tHz"_s);
    }

    void durations_data()
    {
        QTest::addColumn<double>("ms");
        QTest::addColumn<QString>("rounded");
        QTest::addColumn<QString>("clock");
        QTest::newRow("zero") << 0.0 << u"0 seconds"_s << u"0:00"_s;
        QTest::newRow("5 s") << 5000.0 << u"5 seconds"_s << u"0:05"_s;
        QTest::newRow("59.9 s") << 59900.0 << u"59 seconds"_s << u"0:59"_s;
        QTest::newRow("65 s") << 65000.0 << u"1.1 minutes"_s << u"1:05"_s;
        QTest::newRow("90 s") << 90000.0 << u"1.5 minutes"_s << u"1:30"_s;
        QTest::newRow("1:02:05") << 3725000.0 << u"1.0 hours"_s << u"1:02:05"_s;
        QTest::newRow("2.5 h") << 9000000.0 << u"2.5 hours"_s << u"2:30:00"_s;
        QTest::newRow("10 h") << 36000000.0 << u"10.0 hours"_s << u"10:00:00"_s;
        QTest::newRow("one day") << 86400000.0 << u"1.0 days"_s << u"1:00:0:00"_s;
        QTest::newRow("day and 3 min") << 86580000.0 << u"1.0 days"_s << u"1:00:3:00"_s;
        QTest::newRow("1:01:01:01") << 90061000.0 << u"1.0 days"_s << u"1:01:01:01"_s;
        QTest::newRow("day and 11 h") << 126000000.0 << u"1.5 days"_s << u"1:11:00:00"_s;
    }
    void durations()
    {
        QFETCH(double, ms);
        QFETCH(QString, rounded);
        QFETCH(QString, clock);
        QCOMPARE(CVFormatters::humanReadableTimeFromMilliseconds(ms, true), rounded);
        QCOMPARE(CVFormatters::humanReadableTimeFromMilliseconds(ms, false), clock);
    }

    void dates()
    {
        const qint64 evening = QDateTime(QDate(2009, 3, 14), QTime(21, 5, 7), Qt::UTC).toSecsSinceEpoch();
        QCOMPARE(CVFormatters::formatDate(evening), u"03/14/2009 09:05:07 PM"_s);
        QCOMPARE(CVFormatters::formatDate(evening - 12 * 3600), u"03/14/2009 09:05:07 AM"_s);
        QCOMPARE(CVFormatters::formatDate(0), u"01/01/1970 12:00:00 AM"_s);
    }

    void sortStrings_data()
    {
        QTest::addColumn<QString>("sortValue");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("result");
        QTest::newRow("plain") << QString() << u"Abbey Road"_s << u"abbey road"_s;
        QTest::newRow("sort value wins") << u"Beatles"_s << u"The Beatles"_s << u"beatles"_s;
        QTest::newRow("leading punctuation") << QString() << u"...\"And\" You"_s << u"and\" you"_s;
        QTest::newRow("digits last") << QString() << u"1999"_s << u"zzz1999"_s;
        QTest::newRow("digit after symbols") << QString() << u"(50) Cent"_s << u"zzz50) cent"_s;
        QTest::newRow("missing") << QString() << QString() << u"zzzz"_s;
        QTest::newRow("symbols only") << QString() << u"?!*"_s << u"zzzz"_s;
        QTest::newRow("empty") << QString() << u""_s << u"zzzz"_s;
        QTest::newRow("non-ascii letter") << QString() << u"Ölafur"_s << u"ölafur"_s;
        QTest::newRow("empty sort value") << u""_s << u"Name"_s << u"zzzz"_s;
    }
    void sortStrings()
    {
        QFETCH(QString, sortValue);
        QFETCH(QString, value);
        QFETCH(QString, result);
        QCOMPARE(CVFormatters::customSortString(sortValue, value), result);
        QVariantMap fileTrack;
        if (!value.isNull())
            fileTrack.insert(u"Album"_s, value);
        if (!sortValue.isNull())
            fileTrack.insert(u"Sort Album"_s, sortValue);
        QCOMPARE(CVLibraryManager::customSortStringForKey(u"Album"_s, fileTrack), result);
        QVERIFY(u"zzz1999"_s < u"zzzz"_s);
    }

    void driveRoots()
    {
        struct passwd *me = getpwuid(getuid());
        QVERIFY(me);
        const QString user = QString::fromLocal8Bit(me->pw_name);
        QCOMPARE(CVVolumes::driveRootOfPath(u"/Volumes/Media/Music/a.mp3"_s), u"/Volumes/Media"_s);
        QCOMPARE(
            CVVolumes::driveRootOfPath(u"/media/"_s + user + u"/Big Disk/x"_s), u"/media/"_s + user + u"/Big Disk"_s);
        QCOMPARE(CVVolumes::driveRootOfPath(u"/media/usbstick/x"_s), u"/media/usbstick"_s);
        QCOMPARE(CVVolumes::driveRootOfPath(u"/run/media/ann/Disk/x"_s), u"/run/media/ann/Disk"_s);
        QCOMPARE(CVVolumes::driveRootOfPath(u"/mnt/nas/Music"_s), u"/mnt/nas"_s);
        QCOMPARE(CVVolumes::driveRootOfPath(u"/home/ann/Music"_s), QString());
        QCOMPARE(CVVolumes::driveRootOfPath(u"/Volumes"_s), QString());
        QVERIFY(CVVolumes::isDriveRoot(u"/Volumes/Media"_s));
        QVERIFY(CVVolumes::isDriveRoot(u"/Volumes/Media/"_s));
        QVERIFY(!CVVolumes::isDriveRoot(u"/Volumes/Media/Music"_s));
        QVERIFY(!CVVolumes::isDriveRoot(u"/media/"_s + user));
        for (const QString &container : QStringList { u"/Volumes"_s, u"/Network"_s, u"/media"_s, u"/media/"_s + user,
                 u"/mnt"_s, u"/run/media"_s, u"/run/media/ann"_s })
            QVERIFY2(CVVolumes::isDriveContainer(container), qPrintable(container));
        QVERIFY(!CVVolumes::isDriveContainer(u"/Volumes/Media"_s));
        QVERIFY(!CVVolumes::isDriveContainer(u"/home"_s));

        QCOMPARE(CVVolumes::basePathOfPath(u"/Volumes/Disk/Music/a.mp3"_s), u"/Volumes/Disk"_s);
        QCOMPARE(CVVolumes::basePathOfPath(u"/run/media/ann/Disk/Music/a.mp3"_s), u"/run/media/ann/Disk"_s);
        QCOMPARE(CVVolumes::basePathOfPath(u"/Users/x/Music"_s), u"/Users/x"_s);
        QCOMPARE(CVVolumes::basePathOfPath(u"/"_s), u"/"_s);
        QCOMPARE(CVVolumes::basePathOfPath(QString()), u"nilPath"_s);
        QCOMPARE(CVVolumes::volumeRootOfPath(u"/mnt/nas/Music/a.mp3"_s), u"/mnt/nas"_s);
        QCOMPARE(CVVolumes::volumeRootOfPath(u"/home/ann/Music/a.mp3"_s), u"/"_s);
    }

    void freeSpaceIsMeasuredAtTheNearestFolder()
    {
        QTemporaryDir dir;
        const qint64 here = CVVolumes::freeSpaceForPath(dir.path());
        QVERIFY(here > 0);
        // A destination that does not exist yet is measured where it would be made.
        const qint64 below = CVVolumes::freeSpaceForPath(dir.filePath(u"not/yet/there.mp3"_s));
        QVERIFY(qAbs(below - here) < 64 * 1024 * 1024);
        QCOMPARE(CVVolumes::freeSpaceForPath(u"/no/such/folder"_s) > 0, true); // measured at "/"
    }

    void displayTitles()
    {
        const QString computer = u"Computer"_s;
        QCOMPARE(CVFormatters::createDisplayTitleForPath(QString(), computer), QString());
        QCOMPARE(CVFormatters::createDisplayTitleForPath(u"/"_s, computer), u"Computer"_s);
        QCOMPARE(CVFormatters::createDisplayTitleForPath(u"/Volumes/Media"_s, computer), u"Media"_s);
        QCOMPARE(CVFormatters::createDisplayTitleForPath(u"/Volumes/Media/"_s, computer), u"Media"_s);
        QCOMPARE(CVFormatters::createDisplayTitleForPath(u"/Volumes/Media/Music"_s, computer), u"Music (on Media)"_s);
        QCOMPARE(CVFormatters::createDisplayTitleForPath(u"/Users/ann/Music"_s, computer), u"Music (on Computer)"_s);
        QCOMPARE(CVFormatters::createDisplayTitleForPath(u"/Users/ann/Music/"_s, u"Disk"_s), u"Music (on Disk)"_s);
        QCOMPARE(CVFormatters::createDisplayTitleForPath(u"/mnt/nas/Späť"_s, computer), u"Späť (on nas)"_s);
    }

    void fileURLs_data()
    {
        QTest::addColumn<QByteArray>("url");
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("valid");
        QTest::newRow("localhost") << QByteArray("file://localhost/Users/ann/a%20b.mp3") << u"/Users/ann/a b.mp3"_s
                                   << true;
        QTest::newRow("empty host") << QByteArray("file:///Users/ann/a.mp3") << u"/Users/ann/a.mp3"_s << true;
        QTest::newRow("one slash") << QByteArray("file:/tmp/x") << u"/tmp/x"_s << true;
        QTest::newRow("upper scheme") << QByteArray("FILE://LOCALHOST/tmp/x") << u"/tmp/x"_s << true;
        QTest::newRow("decoded once") << QByteArray("file:///a%2520b") << u"/a%20b"_s << true;
        QTest::newRow("utf8") << QByteArray("file:///Caf%C3%A9") << u"/Café"_s << true;
        QTest::newRow("decomposed kept") << QByteArray("file:///Cafe%CC%81") << u"/Cafe\u0301"_s << true;
        QTest::newRow("raw utf8") << QByteArray("file:///Café") << u"/Café"_s << true;
        QTest::newRow("trailing slash") << QByteArray("file:///Users/ann/") << u"/Users/ann"_s << true;
        QTest::newRow("trailing slashes") << QByteArray("file:///a%2;//") << u"/a%2;"_s << true;
        QTest::newRow("root") << QByteArray("file:///") << u"/"_s << true;
        QTest::newRow("windows") << QByteArray("file://localhost/C:/Music/a.mp3") << u"/C:/Music/a.mp3"_s << true;
        QTest::newRow("stray percent") << QByteArray("file:///100%") << u"/100%"_s << true;
        QTest::newRow("escaped slash") << QByteArray("file:///a%2Fb") << QString() << false;
        QTest::newRow("dot dot") << QByteArray("file:///Music/../etc/passwd") << QString() << false;
        QTest::newRow("escaped dot dot") << QByteArray("file:///Music/%2E%2E/x") << QString() << false;
        QTest::newRow("dot") << QByteArray("file:///Music/./x") << QString() << false;
        QTest::newRow("trailing dot dot") << QByteArray("file:///Music/..") << QString() << false;
        QTest::newRow("dots in names") << QByteArray("file:///Music/..x/y../.z") << u"/Music/..x/y../.z"_s << true;
        QTest::newRow("fragment") << QByteArray("file:///a%23b#frag") << u"/a#b"_s << true;
        QTest::newRow("http") << QByteArray("http://example.com/a.mp3") << QString() << false;
        QTest::newRow("other host") << QByteArray("file://server/share/a.mp3") << QString() << false;
        QTest::newRow("no path") << QByteArray("file://localhost") << QString() << false;
        QTest::newRow("relative") << QByteArray("file:a.mp3") << QString() << false;
        QTest::newRow("bad utf8") << QByteArray("file:///a%FFb") << QString() << false;
        QTest::newRow("nul") << QByteArray("file:///a%00b") << QString() << false;
        QTest::newRow("empty") << QByteArray("") << QString() << false;
    }
    void fileURLs()
    {
        QFETCH(QByteArray, url);
        QFETCH(QString, path);
        QFETCH(bool, valid);
        const auto result = CVFileURL::pathFromFileURL(std::string_view(url.constData(), std::size_t(url.size())));
        QCOMPARE(result.has_value(), valid);
        if (valid) {
            QCOMPARE(*result, path);
            // The way back gives the same path again.
            const QByteArray back = CVFileURL::fileURLFromPath(path);
            QCOMPARE(
                CVFileURL::pathFromFileURL(std::string_view(back.constData(), std::size_t(back.size()))).value(), path);
        }
    }
};

QTEST_GUILESS_MAIN(TestFormatters)
#include "tst_formatters.moc"
