#include "flash/mount.h"
#include "tests/flash/loggingsteptest.h"
#include "tests/flash/steptest.h"
#include "tests/support/testprogram.h"

class TestMount : public LoggingStepTest
{
    Q_OBJECT

public:
    TestMount()
        : LoggingStepTest(
              {"mount", {"-t", "ubifs", "/dev/ubi0_0", "/mnt"}, "debug: Starting mount"})
    {
    }

private slots:
    void classAddsNoSignalOrSlot();

private:
    std::unique_ptr<MFProc> makeStep() const override { return std::make_unique<Mount>(nullptr); }
    void addOutcomes() const override;
};

void TestMount::classAddsNoSignalOrSlot()
{
    QCOMPARE(QString(Mount::staticMetaObject.className()), QString("Mount"));
    QCOMPARE(Mount::staticMetaObject.superClass(), &MFProc::staticMetaObject);
    QCOMPARE(declaredMethods(Mount::staticMetaObject), QStringList());
}

void TestMount::addOutcomes() const
{
    const QStringList success({"status 100", "complete"});
    const QStringList failure("failed Finished with Error");
    QTest::newRow("mounted") << "mount-good" << 0 << success
                             << QStringList({"debug: Starting mount",
                                             "debug: process finished with code 0"});
    QTest::newRow("already mounted")
        << "mount-already" << 32 << failure
        << QStringList({"debug: Starting mount", "debug: process finished with code 32"});
    QTest::newRow("no volume") << "mount-no-volume" << 32 << failure
                               << QStringList({"debug: Starting mount",
                                               "debug: process finished with code 32"});
}

MFTOOL_TEST(TestMount, EventLoop)
#include "tst_mount.moc"
