#include "CVLibraryGenerator.h"
#include "Library/CVPlistReader.h"

#include <QBuffer>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;
using Token = CVPlistReader::Token;

namespace {

// The whole token stream as text, so two ways of reading can be compared.
QStringList tokens(CVPlistReader &r, int limit = 10000000)
{
    QStringList out;
    for (int i = 0; i < limit; ++i) {
        const Token t = r.next();
        switch (t) {
        case Token::DictBegin:
            out << u"{"_s;
            break;
        case Token::DictEnd:
            out << u"}"_s;
            break;
        case Token::ArrayBegin:
            out << u"["_s;
            break;
        case Token::ArrayEnd:
            out << u"]"_s;
            break;
        case Token::Key:
            out << u"k:"_s + r.string();
            break;
        case Token::String:
            out << u"s:"_s + r.string();
            break;
        case Token::Integer:
            out << u"i:"_s + QString::number(r.integer());
            break;
        case Token::Real:
            out << u"r:"_s + QString::number(r.real(), 'g', 17);
            break;
        case Token::Boolean:
            out << (r.boolean() ? u"true"_s : u"false"_s);
            break;
        case Token::Date:
            out << u"d:"_s + QString::number(r.date());
            break;
        case Token::Data:
            out << u"b:"_s + QString::fromLatin1(r.data().toHex());
            break;
        case Token::EndDocument:
            out << u"END"_s;
            return out;
        case Token::Error:
            out << u"ERROR "_s + r.errorDescription();
            return out;
        case Token::None:
            break;
        }
    }
    out << u"LIMIT"_s;
    return out;
}

QStringList tokensOf(const QByteArray &doc)
{
    CVPlistReader r(doc);
    return tokens(r);
}

QStringList tokensStreamed(const QByteArray &doc, int chunk)
{
    QBuffer buffer;
    buffer.setData(doc);
    buffer.open(QIODevice::ReadOnly);
    CVPlistReader r(&buffer, chunk);
    return tokens(r);
}

QByteArray plist(const QByteArray &body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n"
        + body + "\n</plist>\n";
}

QByteArray generatedLibrary(int tracks)
{
    QTemporaryDir dir;
    CVLibraryGeneratorOptions options;
    options.tracks = tracks;
    options.seed = 9;
    const QString file = dir.filePath(u"lib.xml"_s);
    if (!CVLibraryGenerator(options).write(file))
        return {};
    QFile f(file);
    f.open(QIODevice::ReadOnly);
    return f.readAll();
}

} // namespace

class TestPlistReader : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsEveryType()
    {
        const QByteArray doc = plist(
            "<dict>\n"
            "  <key>s</key><string>plain</string>\n"
            "  <key>ent</key><string>a &lt;b&gt; &amp; &quot;c&quot; &apos;d&apos; &#233;&#xE9;&#x1F600;</string>\n"
            "  <key>cdata</key><string>x<![CDATA[<not a tag> & ]]>y<!-- gone -->z</string>\n"
            "  <key>crlf</key><string>one\r\ntwo\rthree</string>\n"
            "  <key>empty</key><string/>\n"
            "  <key>empty2</key><string></string>\n"
            "  <key>i</key><integer>-42</integer>\n"
            "  <key>hex</key><integer>0x1F</integer>\n"
            "  <key>big</key><integer>18446744073709551615</integer>\n"
            "  <key>r</key><real>2.5e3</real>\n"
            "  <key>r2</key><real> -0.125 </real>\n"
            "  <key>t</key><true/>\n"
            "  <key>f</key><false></false>\n"
            "  <key>d</key><date>2009-03-14T21:05:07Z</date>\n"
            "  <key>b</key><data>\n\tAQID\n\tBA==\n</data>\n"
            "  <key>nodata</key><data/>\n"
            "  <key>a</key><array><integer>1</integer><array/><dict/></array>\n"
            "  <key/><string>empty key</string>\n"
            "</dict>");
        const QStringList expected { u"{"_s, u"k:s"_s, u"s:plain"_s, u"k:ent"_s, u"s:a <b> & \"c\" 'd' éé😀"_s,
            u"k:cdata"_s, u"s:x<not a tag> & yz"_s, u"k:crlf"_s, u"s:one\ntwo\nthree"_s, u"k:empty"_s, u"s:"_s,
            u"k:empty2"_s, u"s:"_s, u"k:i"_s, u"i:-42"_s, u"k:hex"_s, u"i:31"_s, u"k:big"_s, u"i:-1"_s, u"k:r"_s,
            u"r:2500"_s, u"k:r2"_s, u"r:-0.125"_s, u"k:t"_s, u"true"_s, u"k:f"_s, u"false"_s, u"k:d"_s,
            u"d:1237064707"_s, u"k:b"_s, u"b:01020304"_s, u"k:nodata"_s, u"b:"_s, u"k:a"_s, u"["_s, u"i:1"_s, u"["_s,
            u"]"_s, u"{"_s, u"}"_s, u"]"_s, u"k:"_s, u"s:empty key"_s, u"}"_s, u"END"_s };
        QCOMPARE(tokensOf(doc), expected);
        // The same, fed a few bytes at a time.
        for (int chunk : { 64, 65, 97, 211 })
            QCOMPARE(tokensStreamed(doc, chunk), expected);
    }

    void acceptsDocumentsWithoutTheWrapper()
    {
        QCOMPARE(tokensOf("<array><string>x</string></array>"), (QStringList { u"["_s, u"s:x"_s, u"]"_s, u"END"_s }));
        QCOMPARE(tokensOf("\xEF\xBB\xBF<string>bom</string>"), (QStringList { u"s:bom"_s, u"END"_s }));
    }

    void skipsWholeValues()
    {
        const QByteArray doc("<dict><key>a</key><dict><key>x</key><array><dict/></array></dict>"
                             "<key>b</key><integer>2</integer></dict>");
        CVPlistReader r { QByteArrayView(doc) };
        QCOMPARE(r.next(), Token::DictBegin);
        QCOMPARE(r.next(), Token::Key);
        QCOMPARE(r.next(), Token::DictBegin);
        QVERIFY(r.skipValue());
        QCOMPARE(r.depth(), 1);
        QCOMPARE(r.next(), Token::Key);
        QCOMPARE(r.string(), u"b"_s);
        QCOMPARE(r.next(), Token::Integer);
        QCOMPARE(r.next(), Token::DictEnd);
        QCOMPARE(r.next(), Token::EndDocument);
        QCOMPARE(r.next(), Token::EndDocument);
    }

    void streamingMatchesReadingInMemory()
    {
        const QByteArray doc = generatedLibrary(150);
        QVERIFY(!doc.isEmpty());
        const QStringList whole = tokensOf(doc);
        QCOMPARE(whole.last(), u"END"_s);
        for (int chunk : { 64, 100, 1000, 4096, 1 << 20 })
            QCOMPARE(tokensStreamed(doc, chunk), whole);
    }

    void resumesAnywhereBetweenValues()
    {
        // Comments, CDATA, entities and empty containers between and inside the values.
        const QByteArray doc = plist("<dict>\n<key>a</key><dict><key>x</key><integer>1</integer></dict>\n"
                                     "<!-- </dict><key> --><key>b</key><array><dict/><array/>"
                                     "<string>p<![CDATA[</dict>]]>q</string><true/></array>\n"
                                     "<key>c&amp;</key><dict>\n<key>d</key><date>2009-03-14T21:05:07Z</date></dict>"
                                     "\n<key>e</key><data>AQI=</data></dict>");
        const QStringList whole = tokensOf(doc);
        QCOMPARE(whole.last(), u"END"_s);
        // A second reader started where the first stands, in its nesting, reads on the same,
        // from memory and from a device alike.
        CVPlistReader first { QByteArrayView(doc) };
        for (qsizetype i = 0; i + 1 < whole.size(); ++i) {
            first.next();
            CVPlistReader memory { QByteArrayView(doc) };
            QVERIFY(memory.resume(first.offset(), first.nesting()));
            QCOMPARE(tokens(memory), whole.mid(i + 1));

            QBuffer buffer;
            buffer.setData(doc);
            buffer.open(QIODevice::ReadOnly);
            CVPlistReader streamed(&buffer, 64);
            QVERIFY(streamed.resume(first.offset(), first.nesting()));
            QCOMPARE(tokens(streamed), whole.mid(i + 1));
        }
    }

    void resumedReaderReportsPlacesInTheWholeDocument()
    {
        const QByteArray doc("<plist>\n<dict>\n<key>a</key><integer>1</integer>\n<key>b</key>\n<integer>x</integer>"
                             "</dict></plist>");
        CVPlistReader first { QByteArrayView(doc) };
        for (int i = 0; i < 3; ++i)
            first.next();
        QBuffer buffer;
        buffer.setData(doc);
        buffer.open(QIODevice::ReadOnly);
        CVPlistReader streamed(&buffer, 64);
        QVERIFY(streamed.resume(first.offset(), first.nesting()));
        QCOMPARE(tokens(streamed).last(), u"ERROR line 5, column 10: invalid content of <integer>"_s);
        QCOMPARE(tokensOf(doc).last(), u"ERROR line 5, column 10: invalid content of <integer>"_s);
    }

    void reportsErrorsWithLineAndColumn_data()
    {
        QTest::addColumn<QByteArray>("doc");
        QTest::addColumn<QString>("error");
        QTest::newRow("key without value") << QByteArray("<plist>\n<dict>\n  <key>a</key>\n</dict></plist>")
                                           << u"line 4, column 1: key without a value"_s;
        QTest::newRow("value without key")
            << QByteArray("<dict>\n<string>x</string></dict>") << u"line 2, column 1: value without a key"_s;
        QTest::newRow("wrong nesting") << QByteArray("<dict>\n<key>a</key><array></dict>")
                                       << u"line 2, column 20: unexpected closing tag </dict>"_s;
        QTest::newRow("mismatched scalar")
            << QByteArray("<string>x</integer>") << u"line 1, column 10: mismatched closing tag in <string>"_s;
        QTest::newRow("unknown element") << QByteArray("<dict><key>a</key><float>1</float></dict>")
                                         << u"line 1, column 19: unknown element <float>"_s;
        QTest::newRow("bad entity") << QByteArray("<string>a &nbsp; b</string>")
                                    << u"line 1, column 11: unknown entity"_s;
        QTest::newRow("unterminated entity")
            << QByteArray("<string>a &amp b</string>") << u"line 1, column 11: malformed entity"_s;
        QTest::newRow("nul reference") << QByteArray("<string>&#0;</string>")
                                       << u"line 1, column 9: invalid character reference"_s;
        QTest::newRow("surrogate reference")
            << QByteArray("<string>&#xD800;</string>") << u"line 1, column 9: invalid character reference"_s;
        QTest::newRow("bad integer") << QByteArray("<integer>12a</integer>")
                                     << u"line 1, column 10: invalid content of <integer>"_s;
        QTest::newRow("bad integer in a dictionary") << QByteArray("<dict><key>a</key><integer>1x</integer></dict>")
                                                     << u"line 1, column 28: invalid content of <integer>"_s;
        QTest::newRow("bad date in a dictionary")
            << QByteArray("<dict><key>a</key><date>2009-03-14T25:05:07Z</date></dict>")
            << u"line 1, column 25: invalid content of <date>"_s;
        QTest::newRow("key for a value") << QByteArray("<dict><key>a</key><key>b</key></dict>")
                                         << u"line 1, column 19: <key> outside of a dictionary"_s;
        QTest::newRow("empty integer") << QByteArray("<integer/>")
                                       << u"line 1, column 11: invalid content of <integer>"_s;
        QTest::newRow("bad date") << QByteArray("<date>2009-13-01T00:00:00Z</date>")
                                  << u"line 1, column 7: invalid content of <date>"_s;
        QTest::newRow("bad base64") << QByteArray("<data>AB$C</data>")
                                    << u"line 1, column 7: invalid content of <data>"_s;
        QTest::newRow("text in true") << QByteArray("<true>yes</true>")
                                      << u"line 1, column 7: invalid content of <true>"_s;
        QTest::newRow("two roots") << QByteArray("<string>a</string>\n<string>b</string>")
                                   << u"line 2, column 1: more than one top-level value"_s;
        QTest::newRow("stray text") << QByteArray("<array>oops</array>")
                                    << u"line 1, column 8: text outside of an element"_s;
        QTest::newRow("element in string")
            << QByteArray("<string>a<b/></string>") << u"line 1, column 10: element inside <string>"_s;
        QTest::newRow("truncated") << QByteArray("<dict>\n<key>a</key>\n<string>abc")
                                   << u"line 3, column 12: unexpected end of file"_s;
        QTest::newRow("nothing") << QByteArray("  \n ") << u"line 2, column 2: no property list found"_s;
        QTest::newRow("empty plist") << QByteArray("<plist></plist>") << u"line 1, column 8: empty property list"_s;
    }
    void reportsErrorsWithLineAndColumn()
    {
        QFETCH(QByteArray, doc);
        QFETCH(QString, error);
        QCOMPARE(tokensOf(doc).last(), u"ERROR "_s + error);
        // Streaming reports the same place: the reader counts lines only after the fact.
        QCOMPARE(tokensStreamed(doc, 64).last(), u"ERROR "_s + error);
    }

    void staysInErrorOnceFailed()
    {
        const QByteArray doc("<dict><integer>1</integer></dict>");
        CVPlistReader r { QByteArrayView(doc) };
        QCOMPARE(r.next(), Token::DictBegin);
        QCOMPARE(r.next(), Token::Error);
        QCOMPARE(r.next(), Token::Error);
        QVERIFY(!r.skipValue());
    }

    void refusesDeepNestingWithoutRecursion()
    {
        const QByteArray doc = QByteArray("<array>").repeated(100000);
        QVERIFY(tokensOf(doc).last().endsWith(u"nesting too deep"_s));
    }

    void survivesEveryTruncation()
    {
        const QByteArray doc = generatedLibrary(12);
        QVERIFY(tokensOf(doc).last() == u"END"_s);
        // Cut at every offset up to the closing tag: each gives an error, never a crash or a hang.
        const qsizetype lastTag = doc.lastIndexOf("</plist>");
        for (qsizetype cut = 0; cut <= lastTag; cut += 7) {
            const QStringList t = tokensOf(doc.left(cut));
            QVERIFY2(t.last().startsWith(u"ERROR"_s), qPrintable(QString::number(cut)));
        }
    }

    void survivesGarbage()
    {
        QRandomGenerator rng(1234);
        const QByteArray base = generatedLibrary(5);
        for (int round = 0; round < 3000; ++round) {
            QByteArray doc = base;
            // Flip, insert and drop bytes, biased towards the characters of markup.
            const int edits = 1 + int(rng.bounded(8));
            for (int e = 0; e < edits; ++e) {
                const qsizetype at = rng.bounded(doc.size());
                static const char markup[] = "<>/&;#x!-[]?\"= \n\xC3\x00";
                const char c = rng.bounded(2) ? markup[rng.bounded(int(sizeof markup))] : char(rng.bounded(256));
                switch (rng.bounded(3)) {
                case 0:
                    doc[at] = c;
                    break;
                case 1:
                    doc.insert(at, c);
                    break;
                default:
                    doc.remove(at, 1 + rng.bounded(20));
                    break;
                }
            }
            const QStringList t = tokensOf(doc);
            QVERIFY(t.last() != u"LIMIT"_s);
        }
        // Pure noise.
        for (int round = 0; round < 200; ++round) {
            QByteArray noise(qsizetype(rng.bounded(4096)), '\0');
            for (char &c : noise)
                c = char(rng.bounded(256));
            QVERIFY(tokensOf(noise).last().startsWith(u"ERROR"_s));
        }
    }
};

QTEST_GUILESS_MAIN(TestPlistReader)
#include "tst_plistreader.moc"
