// Who the tool says it is.
#include "app/identity.h"

#include <QtTest>

#include "tests/support/testprogram.h"

class TestIdentity : public QObject
{
    Q_OBJECT

private slots:
    void names();
};

void TestIdentity::names()
{
    setIdentity();
    QCOMPARE(QCoreApplication::organizationName(), QString("Tarnwick"));
    QCOMPARE(QCoreApplication::organizationDomain(), QString("tarnwick.example"));
    QCOMPARE(QCoreApplication::applicationName(), QString("ZRV8810-MF"));
    QCOMPARE(QCoreApplication::applicationVersion(), QString("0.5"));
}

MFTOOL_TEST(TestIdentity, NoApplication)
#include "tst_identity.moc"
