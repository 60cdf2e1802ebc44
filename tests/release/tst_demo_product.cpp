#include "location/installation_identity.h"

#include <QDir>
#include <QFileInfo>
#include <QTest>

class DemoProductTest : public QObject
{
    Q_OBJECT

private slots:
    void programsAreRecognised_data();
    void programsAreRecognised();
};

void DemoProductTest::programsAreRecognised_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("kind");
    QTest::newRow("the demo launcher is the product's launcher") << 0 << int(InstallationIdentity::Launcher);
    QTest::newRow("the demo updater is a valid program but no launcher") << 1 << int(InstallationIdentity::ValidExecutable);
    QTest::newRow("the demo core is a valid program but no launcher") << 2 << int(InstallationIdentity::ValidExecutable);
}

void DemoProductTest::programsAreRecognised()
{
    QFETCH(int, index);
    QFETCH(int, kind);
    QString path = qEnvironmentVariable("BRISA_DEMO_PROGRAMS").split(QLatin1Char('|')).value(index);
    // The build hands over host paths; Wine shows the host's root as drive Z:.
    if (path.startsWith(QLatin1Char('/')))
        path.prepend(QStringLiteral("Z:"));
    QVERIFY2(QFileInfo::exists(path), qPrintable(path));
    const InstallationIdentity::Result identity = InstallationIdentity::executable(path);
    QVERIFY2(identity.kind == kind, qPrintable(QStringLiteral("kind %1: %2").arg(identity.kind).arg(identity.message)));
}

QTEST_GUILESS_MAIN(DemoProductTest)
#include "tst_demo_product.moc"
