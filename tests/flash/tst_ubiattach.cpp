#include "flash/ubiattach.h"
#include "tests/flash/loggingsteptest.h"
#include "tests/flash/steptest.h"
#include "tests/support/testprogram.h"

class TestUBIAttach : public LoggingStepTest
{
    Q_OBJECT

public:
    TestUBIAttach()
        : LoggingStepTest({"ubiattach", {"/dev/ubi_ctrl", "-m", "1"}, "debug: Starting ubiattach"})
    {
    }

private slots:
    void classAddsNoSignalOrSlot();

private:
    std::unique_ptr<MFProc> makeStep() const override
    {
        return std::make_unique<UBIAttach>(nullptr);
    }
    void addOutcomes() const override;
};

void TestUBIAttach::classAddsNoSignalOrSlot()
{
    QCOMPARE(QString(UBIAttach::staticMetaObject.className()), QString("UBIAttach"));
    QCOMPARE(UBIAttach::staticMetaObject.superClass(), &MFProc::staticMetaObject);
    QCOMPARE(declaredMethods(UBIAttach::staticMetaObject), QStringList());
}

void TestUBIAttach::addOutcomes() const
{
    const QStringList success({"status 100", "complete"});
    const QStringList failure("failed Finished with Error");
    QTest::newRow("attached")
        << "ubiattach-good" << 0 << success
        << QStringList({"debug: Starting ubiattach",
                        "debug: UBI device number 0, total 1984 LEBs (255983616 bytes, 244.1 "
                        "MiB), available 0 LEBs (0 bytes), LEB size 129024 bytes (126.0 KiB)\n",
                        "debug: process finished with code 0"});
    QTest::newRow("already attached")
        << "ubiattach-twice" << 255 << failure
        << QStringList({"debug: Starting ubiattach", "debug: process finished with code 255"});
    QTest::newRow("no UBI in the kernel")
        << "ubiattach-no-ubi" << 255 << failure
        << QStringList({"debug: Starting ubiattach", "debug: process finished with code 255"});
}

MFTOOL_TEST(TestUBIAttach, EventLoop)
#include "tst_ubiattach.moc"
