// Which files are read as pictures.
#include "app/picturefile.h"

#include <QtTest>

#include <sys/stat.h>

#include "tests/support/boardfolder.h"
#include "tests/support/testprogram.h"

class TestPictureFile : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void wholeName();
    void endingLeftOut();
    void folderOfTheSameName();
    void nameItselfComesFirst();
    void contentsDecideTheFormat();
    void noPicture_data();
    void noPicture();
    void pipesAreNotOpened_data();
    void pipesAreNotOpened();

private:
    void makePicture(const QString &name, const QSize &size)
    {
        QImage image(size, QImage::Format_RGB32);
        image.fill(Qt::red);
        m_folder->makeFolder("/pictures");
        QVERIFY(image.save(at(name), "PNG"));
    }
    QString at(const QString &name) { return m_folder->at("/pictures/" + name); }

    std::unique_ptr<BoardFolder> m_folder;
};

void TestPictureFile::init()
{
    m_folder = std::make_unique<BoardFolder>();
    m_folder->makeFolder("/pictures");
}

void TestPictureFile::wholeName()
{
    makePicture("bars1.png", QSize(10, 20));
    QCOMPARE(loadPicture(at("bars1.png")).size(), QSize(10, 20));
}

void TestPictureFile::endingLeftOut()
{
    makePicture("bars1.png", QSize(10, 20));
    QCOMPARE(loadPicture(at("bars1")).size(), QSize(10, 20));
}

void TestPictureFile::folderOfTheSameName()
{
    makePicture("bars1.png", QSize(10, 20));
    m_folder->makeFolder("/pictures/bars1");
    QCOMPARE(loadPicture(at("bars1")).size(), QSize(10, 20));
}

void TestPictureFile::nameItselfComesFirst()
{
    makePicture("bars1", QSize(30, 30));
    makePicture("bars1.png", QSize(10, 20));
    QCOMPARE(loadPicture(at("bars1")).size(), QSize(30, 30));
}

void TestPictureFile::contentsDecideTheFormat()
{
    makePicture("bars1.jpg", QSize(10, 20));
    QCOMPARE(loadPicture(at("bars1.jpg")).size(), QSize(10, 20));
}

void TestPictureFile::noPicture_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("nothing there") << "missing";
    QTest::newRow("part of a name") << "bars";
    QTest::newRow("ending of no format") << "notes";
    QTest::newRow("no picture in it") << "text.png";
    QTest::newRow("no picture in it, ending left out") << "text";
    QTest::newRow("a folder") << "folder";
    QTest::newRow("the folder itself") << "";
}

void TestPictureFile::noPicture()
{
    QFETCH(QString, name);
    makePicture("bars1.png", QSize(10, 20));
    makePicture("notes.txt", QSize(10, 20));
    m_folder->write("/pictures/text.png", "no picture at all");
    m_folder->makeFolder("/pictures/folder");
    QVERIFY(loadPicture(at(name)).isNull());
}

void TestPictureFile::pipesAreNotOpened_data()
{
    QTest::addColumn<QString>("pipe");
    QTest::addColumn<QString>("name");
    QTest::newRow("by its name") << "pipe"
                                 << "pipe";
    QTest::newRow("ending left out") << "pipe.png"
                                     << "pipe";
}

/// Opening one that nobody writes to would not return.
void TestPictureFile::pipesAreNotOpened()
{
    QFETCH(QString, pipe);
    QFETCH(QString, name);
    QCOMPARE(mkfifo(qPrintable(at(pipe)), 0600), 0);
    QVERIFY(loadPicture(at(name)).isNull());
}

MFTOOL_TEST(TestPictureFile, EventLoop)
#include "tst_picturefile.moc"
