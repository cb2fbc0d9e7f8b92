// A thread's heap grown ahead: the permission to use the memory is there at once, the memory
// itself is not taken until used.
#include "Platform/CVThreadHeap.h"

#include <QFile>
#include <QtTest>

#include <cstdlib>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

struct Mapping {
    quintptr start = 0;
    quintptr end = 0;
    bool writable = false;
};

// The mapping of this process that holds address.
Mapping mappingOf(const void *address)
{
    QFile maps(u"/proc/self/maps"_s);
    if (!maps.open(QIODevice::ReadOnly))
        return {};
    const quintptr at = quintptr(address);
    for (const QByteArray &line : maps.readAll().split('\n')) {
        const QList<QByteArray> fields = line.split(' ');
        if (fields.size() < 2)
            continue;
        const QList<QByteArray> range = fields[0].split('-');
        const quintptr start = range.value(0).toULongLong(nullptr, 16);
        const quintptr end = range.value(1).toULongLong(nullptr, 16);
        if (at >= start && at < end)
            return { start, end, fields[1].startsWith("rw") };
    }
    return {};
}

// Writable bytes of the heaps of glibc's thread arenas: mappings that begin on a 64 MB boundary.
quint64 writableHeapBytes()
{
    QFile maps(u"/proc/self/maps"_s);
    if (!maps.open(QIODevice::ReadOnly))
        return 0;
    quint64 bytes = 0;
    for (const QByteArray &line : maps.readAll().split('\n')) {
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() != 5 || !fields[1].startsWith("rw"))
            continue;
        const QList<QByteArray> range = fields[0].split('-');
        const quint64 start = range.value(0).toULongLong(nullptr, 16);
        const quint64 end = range.value(1).toULongLong(nullptr, 16);
        if (start % (64u << 20) == 0)
            bytes += end - start;
    }
    return bytes;
}

qint64 residentKB()
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    return -1;
}

} // namespace

class TestThreadHeap : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        if (!CVThreadHeap::isGlibcHeap())
            QSKIP("the heaps are a sanitizer's, not glibc's");
    }

    void grownHeapIsWritableButNotResident()
    {
        constexpr std::size_t grown = 32u << 20;
        quintptr writableAfterPiece = 0;
        qint64 residentGrowthKB = -1;
        bool usable = false;
        std::thread([&] {
            // The thread's heap exists once it has allocated something.
            void *first = std::malloc(64);
            const qint64 before = residentKB();
            const CVThreadHeap::Reservation heap = CVThreadHeap::growAhead(grown);
            residentGrowthKB = residentKB() - before;
            const Mapping mapping = mappingOf(first);
            if (mapping.writable)
                writableAfterPiece = mapping.end - quintptr(first);
            // The memory is there to be used, in small pieces as in one.
            char *piece = static_cast<char *>(std::malloc(grown / 2));
            if (piece) {
                piece[0] = 1;
                piece[grown / 2 - 1] = 2;
                usable = true;
            }
            std::free(piece);
            std::free(first);
            const CVThreadHeap::Reservation none = CVThreadHeap::growAhead(0);
        }).join();
        QVERIFY(usable);
        // Writable well past what the thread had used, in one mapping...
        QVERIFY2(writableAfterPiece >= grown - (1u << 20), qPrintable(QString::number(writableAfterPiece)));
        // ...without its pages taken: the pieces were given back untouched but for their headers.
        QVERIFY2(residentGrowthKB < 4096, qPrintable(QString::number(residentGrowthKB)));
    }

    void growsPastOneHeap()
    {
        // glibc's heaps hold 64 MB each: more than that takes further heaps, kept while the
        // reservation lasts, given back once it ends and nothing else of theirs is in use.
        constexpr quint64 grown = 150u << 20;
        quint64 during = 0, after = 0, before = 0;
        qint64 residentGrowthKB = -1;
        std::thread([&] {
            std::free(std::malloc(64));
            before = writableHeapBytes();
            const qint64 residentBefore = residentKB();
            {
                const CVThreadHeap::Reservation heap = CVThreadHeap::growAhead(grown);
                during = writableHeapBytes();
                residentGrowthKB = residentKB() - residentBefore;
            }
            after = writableHeapBytes();
        }).join();
        // (An arena left by an earlier thread may be reused, with what it had grown already.)
        QVERIFY2(during >= grown && during > before, qPrintable(QString::number(during)));
        QVERIFY2(after < during, qPrintable(QString::number(after)));
        // A page for each 120 kB piece was touched, and given back with the rest.
        QVERIFY2(residentGrowthKB >= 0 && residentGrowthKB < 1024, qPrintable(QString::number(residentGrowthKB)));
    }
};

QTEST_GUILESS_MAIN(TestThreadHeap)
#include "tst_threadheap.moc"
