#include <QtTest>
class T : public QObject { Q_OBJECT private Q_SLOTS: void none() {} };
QTEST_GUILESS_MAIN(T)
#include "tst_settings.moc"
