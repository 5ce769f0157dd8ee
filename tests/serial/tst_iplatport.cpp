// The platform port's table of virtual functions: whoever links against the interface
// from elsewhere calls by place, not by name.
#include "serial/iplatport.h"

#include <QtTest>

#include <cstring>
#include <type_traits>

#include "tests/support/testprogram.h"

namespace
{

/// The place of @p function in its class's table. The C++ ABI of GCC and Clang keeps
/// the offset in the first word of a pointer to a virtual function; on most machines
/// its lowest bit says that the function is one.
template<typename Function> int placeOf(Function function)
{
    ptrdiff_t words[2];
    static_assert(sizeof words == sizeof function, "another ABI");
    memcpy(words, &function, sizeof words);
    return int((words[0] & ~ptrdiff_t(1)) / ptrdiff_t(sizeof(void *)));
}

} // namespace

class TestIPlatPort : public QObject
{
    Q_OBJECT

private slots:
    void orderOfTheVirtualFunctions();
    void isAbstract();
};

void TestIPlatPort::orderOfTheVirtualFunctions()
{
    // The destructor has two places.
    QCOMPARE(placeOf(&IPlatPort::open), 2);
    QCOMPARE(placeOf(&IPlatPort::close), 3);
    QCOMPARE(placeOf(&IPlatPort::read), 4);
    QCOMPARE(placeOf(&IPlatPort::write), 5);
    QCOMPARE(placeOf(&IPlatPort::isOpen), 6);
    QCOMPARE(placeOf(&IPlatPort::handle), 7);
}

void TestIPlatPort::isAbstract()
{
    QVERIFY(std::is_abstract<IPlatPort>::value);
    QVERIFY(std::has_virtual_destructor<IPlatPort>::value);
    QCOMPARE(sizeof(IPlatPort), sizeof(void *)); // no data
}

MFTOOL_TEST(TestIPlatPort, NoApplication)
#include "tst_iplatport.moc"
