// The archived predicate: the drag data of every pane and the saved queue share one encoding.
#include "Library/CVPredicateArchive.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using namespace Qt::StringLiterals;

class TestPredicateArchive : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void roundTrips();
    void writtenAsQtWritesIt();
    void refusesWhatIsNotOurs_data();
    void refusesWhatIsNotOurs();
    void dictionaryWithoutIdentifiersSelectsNothing();
};

void TestPredicateArchive::roundTrips()
{
    const CVPredicate text = CVPredicate::fromText(u"( SortArtist == 'ac/dc\\\\\\\\ \\'x\\'' )"_s);
    QCOMPARE(CVPredicateArchive::unarchive(CVPredicateArchive::archive(text)), text);

    CVPredicate queue = CVPredicate::forPersistentIDs({ u"00000000000000A1"_s, u"00000000000000B2"_s });
    queue.setCacheKey(u"00000000000000A1,00000000000000B2"_s);
    queue.setIsSavedQueue(true);
    QCOMPARE(CVPredicateArchive::unarchive(CVPredicateArchive::archive(queue)), queue);

    CVPredicate playlist = CVPredicate::forTrackIDs({ 3, 5, 8 });
    playlist.setIsPlaylist(true);
    playlist.setCacheKey(u"ABCDEF0123456789"_s);
    QCOMPARE(CVPredicateArchive::unarchive(CVPredicateArchive::archive(playlist)), playlist);

    // An empty text is a predicate too (the "All" row's drag).
    QCOMPARE(CVPredicateArchive::unarchive(CVPredicateArchive::archive(CVPredicate::fromText(u""_s))),
        CVPredicate::fromText(u""_s));
}

void TestPredicateArchive::writtenAsQtWritesIt()
{
    // The archive is written by hand for speed; it must be what QJsonDocument writes, escapes and all.
    const QString odd = u"quote \" backslash \\ slash / tab \t line \n return \r bell \a del \x7f "
                        "é ☆ 𝄞 nul-free"_s;
    const auto viaQt = [](const CVPredicate &p) {
        QJsonObject o;
        o.insert(u"CVDraggingPredicate"_s, CVPredicateArchive::Version);
        if (p.kind() == CVPredicate::Kind::Text)
            o.insert(u"text"_s, p.text());
        else
            o.insert(u"dictionary"_s, p.toJson());
        return QJsonDocument(o).toJson(QJsonDocument::Compact);
    };
    const CVPredicate text = CVPredicate::fromText(odd);
    QCOMPARE(CVPredicateArchive::archive(text), viaQt(text));
    CVPredicate ids = CVPredicate::forPersistentIDs({ u"00000000000000A1"_s, odd });
    ids.setCacheKey(odd);
    ids.setIsSavedQueue(true);
    ids.setNoSearch(true);
    QCOMPARE(CVPredicateArchive::archive(ids), viaQt(ids));
    CVPredicate numbers = CVPredicate::forTrackIDs({ 1, 22, 9007199254740993 });
    numbers.setIsPlaylist(true);
    QCOMPARE(CVPredicateArchive::archive(numbers), viaQt(numbers));
    QCOMPARE(CVPredicateArchive::archive(CVPredicate::forTrackIDs({})), viaQt(CVPredicate::forTrackIDs({})));
}

void TestPredicateArchive::refusesWhatIsNotOurs_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("not JSON") << QByteArray("bplist00\x01\x02");
    QTest::newRow("an array") << QByteArray("[1,2]");
    QTest::newRow("no version") << QByteArray(R"j({"text": "( Name == 'x' )"})j");
    QTest::newRow("a newer version") << QByteArray(R"j({"CVDraggingPredicate": 2, "text": ""})j");
    QTest::newRow("neither text nor dictionary") << QByteArray(R"j({"CVDraggingPredicate": 1})j");
    QTest::newRow("dictionary of the wrong kind") << QByteArray(R"j({"CVDraggingPredicate": 1, "dictionary": []})j");
}

void TestPredicateArchive::refusesWhatIsNotOurs()
{
    QFETCH(QByteArray, data);
    QVERIFY(!CVPredicateArchive::unarchive(data));
}

void TestPredicateArchive::dictionaryWithoutIdentifiersSelectsNothing()
{
    const auto p = CVPredicateArchive::unarchive(R"j({"CVDraggingPredicate": 1, "dictionary": {"cacheKey": "x"}})j");
    QVERIFY(p);
    QCOMPARE(p->kind(), CVPredicate::Kind::Dictionary);
    QVERIFY(p->persistentIDs().isEmpty());
    QVERIFY(p->trackIDs().empty());
}

QTEST_GUILESS_MAIN(TestPredicateArchive)
#include "tst_predicatearchive.moc"
