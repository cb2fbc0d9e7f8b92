#include "CVTestFiles.h"
#include "CVTestHome.h"
#include "Platform/CVLoginItems.h"

#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

using namespace Qt::StringLiterals;

class TestLoginItems : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void execLinesSurviveTheRoundTrip_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("plain") << QStringList { u"/opt/corvana/bin/corvana-helper"_s };
        QTest::newRow("blanks") << QStringList { u"/home/ann/My Apps/Corvana Helper"_s, u"--quiet"_s };
        QTest::newRow("specials") << QStringList { u"/tmp/a \"quoted\" $HOME `x` \\ 100% é"_s };
        QTest::newRow("empty argument") << QStringList { u"/bin/helper"_s, QString() };
    }

    void execLinesSurviveTheRoundTrip()
    {
        QFETCH(QStringList, arguments);
        // What the file holds is un-escaped by the reader first, then split.
        QString stored = CVLoginItems::execLine(arguments);
        stored.replace(u"\\\\"_s, u"\\"_s);
        QCOMPARE(CVLoginItems::parseExecLine(stored), arguments);
    }

    void addFindRemove()
    {
        CVTestHome home;
        const QString helper = home.filePath(u"Data/Corvana/Corvana Helper.app/corvana-helper \"%1\""_s);
        CVLoginItems items;
        QVERIFY(!items.inLoginItems(helper));
        writeFile(CVLoginItems::autostartFolder() + u"/other.desktop"_s,
            "[Desktop Entry]\nType=Application\nName=Other\nExec=/usr/bin/other\n");
        QVERIFY(items.addToLoginItems(helper));
        QVERIFY(items.inLoginItems(helper));
        // Membership is "begins with the helper's path": a folder holding it counts.
        QVERIFY(items.inLoginItems(home.filePath(u"Data/Corvana/Corvana Helper.app"_s)));
        QVERIFY(!items.inLoginItems(home.filePath(u"Elsewhere"_s)));

        const QString entry = CVLoginItems::autostartFolder() + u"/org.corvana.CorvanaHelper.desktop"_s;
        if (!QStandardPaths::findExecutable(u"desktop-file-validate"_s).isEmpty()) {
            QProcess validate;
            validate.start(u"desktop-file-validate"_s, { entry });
            QVERIFY(validate.waitForFinished(30000));
            const QByteArray output = validate.readAllStandardOutput() + validate.readAllStandardError();
            QVERIFY2(validate.exitCode() == 0 && !output.contains("error"), output.constData());
        }

        // A second entry for the same program (made by hand) goes too; others stay.
        writeFile(CVLoginItems::autostartFolder() + u"/by-hand.desktop"_s,
            "[Desktop Entry]\nType=Application\nName=By hand\nExec=" + CVLoginItems::execLine({ helper }).toUtf8()
                + " --x\n");
        QVERIFY(items.removeFromLoginItems(helper));
        QVERIFY(!items.inLoginItems(helper));
        QVERIFY(!QFileInfo::exists(entry));
        QVERIFY(QFileInfo::exists(CVLoginItems::autostartFolder() + u"/other.desktop"_s));
    }
};

QTEST_GUILESS_MAIN(TestLoginItems)
#include "tst_loginitems.moc"
