#include "Library/CVFilter.h"
#include "Library/CVSelection.h"

#include <QRandomGenerator>
#include <QtTest>

#include <map>

using namespace Qt::StringLiterals;

namespace {

// A record of named values for the filter: texts, numbers, or absent.
using Record = std::map<QString, QVariant>;

bool matches(const QString &text, const Record &record)
{
    const auto filter = CVFilter::parse(text);
    if (!filter)
        qFatal("does not parse: %s", qPrintable(text));
    QString scratch;
    return filter->matches([&](const CVFilter::Leaf &leaf) {
        const auto it = record.find(leaf.attribute);
        if (it == record.end())
            return CVFilterValue::absent();
        if (it->second.typeId() == QMetaType::QString) {
            scratch = it->second.toString();
            return CVFilterValue::ofText(&scratch);
        }
        return CVFilterValue::ofNumber(it->second.toDouble());
    });
}

QString randomText(QRandomGenerator &rng)
{
    static const QStringList pieces { u"a"_s, u"B"_s, u"é"_s, u"E\u0301"_s, u"\\"_s, u"\\\\"_s, u"'"_s, u"\""_s, u"*"_s,
        u"?"_s, u"%"_s, u")("_s, u" "_s, u"ß"_s, u"Ö"_s, u"東"_s, u"%20"_s, u"\\*"_s, u"x"_s, u"[cd]"_s, u"AND"_s,
        u"||"_s };
    QString s;
    const int n = 1 + int(rng.bounded(6));
    for (int i = 0; i < n; ++i)
        s += pieces[rng.bounded(pieces.size())];
    return s;
}

} // namespace

class TestFilter : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void precedenceAndJoining()
    {
        const Record r { { u"A"_s, 1 }, { u"B"_s, 0 }, { u"C"_s, 1 } };
        QVERIFY(matches(u"( A == 1 ) OR ( B == 1 ) AND ( C == 0 )"_s, r)); // AND binds tighter
        QVERIFY(!matches(u"( ( A == 1 ) OR ( B == 1 ) ) AND ( C == 0 )"_s, r));
        QVERIFY(matches(u"A == 1 || B == 1 && C == 0"_s, r));
        QVERIFY(!matches(u"(A == 1)(B == 1)"_s, r)); // back to back is AND
        QVERIFY(matches(u"(A == 1)(C == 1) OR (B == 5)"_s, r));
        QVERIFY(matches(u"( A == 1 )( C == 1 )( B == 0 )"_s, r));
        // ")(" inside a quoted value is a value, not a join.
        const Record t { { u"Name"_s, u"x)(y"_s } };
        QVERIFY(matches(u"( Name == 'x)(y' )"_s, t));
        QVERIFY(matches(u"( Name == 'x)(y' )( Name != 'z' )"_s, t));
        QVERIFY(matches(u"name == 'x' or Name == 'x)(y'"_s, t)); // keywords in any case
    }

    void missingAttributesAndTypes()
    {
        const Record r { { u"Name"_s, u"5"_s }, { u"Flag"_s, 1 }, { u"Off"_s, 0 }, { u"N"_s, 5 } };
        QVERIFY(matches(u"Missing == NULL"_s, r));
        QVERIFY(!matches(u"Missing != NULL"_s, r));
        QVERIFY(matches(u"Missing != 'x'"_s, r));
        QVERIFY(!matches(u"Missing == 'x'"_s, r));
        QVERIFY(!matches(u"Missing LIKE[cd] '*'"_s, r));
        QVERIFY(!matches(u"Missing BEGINSWITH[c] ''"_s, r));
        QVERIFY(!matches(u"Name == NULL"_s, r));
        QVERIFY(matches(u"Name != NULL"_s, r));
        QVERIFY(matches(u"Flag == 1"_s, r));
        QVERIFY(matches(u"Off == 0"_s, r));
        QVERIFY(matches(u"Flag == YES"_s, r));
        QVERIFY(!matches(u"Name == 5"_s, r)); // a text never equals a number
        QVERIFY(matches(u"Name != 5"_s, r));
        QVERIFY(!matches(u"N == '5'"_s, r));
        QVERIFY(!matches(u"N LIKE '5'"_s, r));
        QVERIFY(matches(u"N == 5"_s, r));
    }

    void caseAndDiacritics()
    {
        for (const QString &name : { u"Beyoncé"_s, u"BEYONCE"_s, u"Beyonce\u0301"_s, u"beyoncé live"_s }) {
            const Record r { { u"Artist"_s, name } };
            QVERIFY2(matches(u"( Artist LIKE[cd] '*beyonce*' )"_s, r), qPrintable(name));
            QVERIFY2(matches(u"( Artist LIKE[cd] '*BEYONCÉ*' )"_s, r), qPrintable(name));
        }
        const Record r { { u"Artist"_s, u"Beyoncé"_s } };
        QVERIFY(!matches(u"( Artist LIKE[c] '*beyonce*' )"_s, r)); // [c] alone keeps the accent
        QVERIFY(matches(u"( Artist LIKE[c] '*BEYONCÉ*' )"_s, r));
        QVERIFY(!matches(u"( Artist LIKE '*beyoncé*' )"_s, r));
        QVERIFY(!matches(u"( Artist == 'Beyonce\u0301' )"_s, r)); // == compares texts as stored
        QVERIFY(matches(u"( Artist BEGINSWITH[c] 'bEy' )"_s, r));
        QVERIFY(!matches(u"( Artist BEGINSWITH 'bey' )"_s, r));
    }

    // The quick fold of Latin-1 letters agrees with decomposition and case folding.
    void quickFoldAgreesWithUnicode()
    {
        auto reference = [](const QString &text) {
            QString out;
            for (QChar c : text.normalized(QString::NormalizationForm_D))
                if (c.category() != QChar::Mark_NonSpacing)
                    out += c;
            return out.toCaseFolded();
        };
        for (char16_t c = 0x20; c < 0x250; ++c) {
            const QString s = u"x"_s + QChar(c) + u"\u0301y"_s;
            QCOMPARE(CVFilter::foldText(s, CVFilter::CaseFold | CVFilter::DiacriticFold), reference(s));
            QCOMPARE(CVFilter::foldText(s, CVFilter::CaseFold), s.toCaseFolded());
        }
    }

    void wildcards()
    {
        const Record r { { u"Name"_s, u"Hey Jude"_s } };
        QVERIFY(matches(u"Name LIKE 'Hey Jude'"_s, r));
        QVERIFY(!matches(u"Name LIKE 'Hey'"_s, r));
        QVERIFY(matches(u"Name LIKE 'H?y*'"_s, r));
        QVERIFY(matches(u"Name LIKE '*J?de'"_s, r));
        QVERIFY(!matches(u"Name LIKE '*J?e'"_s, r));
        QVERIFY(matches(u"Name LIKE '**'"_s, r));
        QVERIFY(matches(u"Name LIKE[cd] '*hey*jude*'"_s, r));
        QVERIFY(!matches(u"Name LIKE[cd] '*jude*hey*'"_s, r));
        QVERIFY(matches(u"Name LIKE[cd] '*e*e*'"_s, r));
        // Escaped wildcards are letters.
        const Record star { { u"Name"_s, u"a*b?"_s } };
        QVERIFY(matches(u"Name LIKE 'a\\\\*b\\\\?'"_s, star));
        QVERIFY(!matches(u"Name LIKE 'a\\\\*b\\\\?'"_s, r));
        const Record other { { u"Name"_s, u"axxb!"_s } };
        QVERIFY(!matches(u"Name LIKE 'a\\\\*b\\\\?'"_s, other));
        QVERIFY(matches(u"Name LIKE 'a*b?'"_s, other));
    }

    void makeSafeFollowsTheRule()
    {
        // a\b*"c'd: four backslashes, two before the star, one before each quote.
        QCOMPARE(CVSelection::makeSafe(u"a\\b*\"c'd"_s), u"a\\\\\\\\b\\\\*\\\"c\\'d"_s);
        QCOMPARE(CVSelection::makeSafe(qint64(42)), u"42"_s);
        QCOMPARE(CVSelection::makeSafe(u"plain"_s), u"plain"_s);
    }

    // Any text, made safe and put into a template, selects exactly the records holding it.
    void makeSafeSelectsExactly()
    {
        QRandomGenerator rng(20261121);
        for (int round = 0; round < 400; ++round) {
            const QString text = randomText(rng);
            const QString safe = CVSelection::makeSafe(text);
            const QString equal = u"( Name == '%1' )"_s.arg(safe);
            const QString notEqual = u"( Name != '%1' )"_s.arg(safe);
            const QString begins = u"( Location BEGINSWITH[c] '%1' )"_s.arg(safe);
            const QString like = u"( Name LIKE[cd] '*%1*' )"_s.arg(safe);
            for (const QString &t : { equal, notEqual, begins, like }) {
                QString error;
                QVERIFY2(CVFilter::parse(t, &error), qPrintable(t + u" : "_s + error));
            }
            const QString cd = CVFilter::foldText(text, CVFilter::CaseFold | CVFilter::DiacriticFold);
            const QString c = CVFilter::foldText(text, CVFilter::CaseFold);
            for (int k = 0; k < 12; ++k) {
                QString value;
                switch (k % 4) {
                case 0:
                    value = text;
                    break;
                case 1:
                    value = randomText(rng) + text.toUpper() + randomText(rng);
                    break;
                case 2:
                    value = text + randomText(rng);
                    break;
                default:
                    value = randomText(rng);
                    break;
                }
                const Record r { { u"Name"_s, value }, { u"Location"_s, value } };
                QCOMPARE(matches(equal, r), value == text);
                QCOMPARE(matches(notEqual, r), value != text);
                QCOMPARE(matches(begins, r), CVFilter::foldText(value, CVFilter::CaseFold).startsWith(c));
                QCOMPARE(matches(like, r),
                    CVFilter::foldText(value, CVFilter::CaseFold | CVFilter::DiacriticFold).contains(cd));
            }
        }
    }

    void textsThatDoNotParse_data()
    {
        QTest::addColumn<QString>("text");
        for (const char *t : { "", "(", "( Name == 'x'", "Name 'x'", "Name == ", "Name == 'open", "== 'x'",
                 "Name LIKE[q] 'x'", "( A == 1 ) AND", "A == 1 B == 2", ")" })
            QTest::newRow(t) << QString::fromUtf8(t);
    }
    void textsThatDoNotParse()
    {
        QFETCH(QString, text);
        QString error;
        QVERIFY(!CVFilter::parse(text, &error));
        QVERIFY(!error.isEmpty());
    }

    void longChainsNeitherRecurseNorCrawl()
    {
        QStringList clauses;
        for (int i = 0; i < 100000; ++i)
            clauses.append(u"( Location BEGINSWITH[c] '/f%1/' )"_s.arg(i));
        const Record r { { u"Location"_s, u"/F99999/x"_s } };
        QVERIFY(matches(clauses.join(u" OR "_s), r));
        QVERIFY(!matches(clauses.join(u" AND "_s), r));
        QVERIFY(matches(u"("_s.repeated(150) + u"Location != NULL"_s + u")"_s.repeated(150), r));
        QVERIFY(!CVFilter::parse(u"("_s.repeated(5000) + u"A == 1"_s + u")"_s.repeated(5000)));
    }

    void compiledOnceAndCached()
    {
        const auto a = CVFilter::compile(u"( Name == 'cached' )"_s);
        const auto b = CVFilter::compile(u"( Name == 'cached' )"_s);
        QCOMPARE(a.get(), b.get());
        QVERIFY(a->isValid());
    }
};

QTEST_GUILESS_MAIN(TestFilter)
#include "tst_filter.moc"
