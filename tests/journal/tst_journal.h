#pragma once

#include <QJsonObject>
#include <QObject>

#include <functional>

// A journal record turned into the bytes a damaged or hostile one would hold.
using Mutation = std::function<QByteArray(QJsonObject)>;
Q_DECLARE_METATYPE(Mutation)

Mutation changed(const std::function<void(QJsonObject &)> &change);
Mutation setKey(const QString &key, const QJsonValue &value);
Mutation setFirstFile(const QString &key, const QJsonValue &value);

class JournalTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void relativePaths_data();
    void relativePaths();
    void unsafePayloadsWriteNoRecord_data();
    void unsafePayloadsWriteNoRecord();
    void hostileRecordsAreRefusedAndKept_data();
    void hostileRecordsAreRefusedAndKept();
    void movesNeverReplace_data();
    void movesNeverReplace();
    void recordSizeLimit_data();
    void recordSizeLimit();
    void foreignContentIsLeftAlone_data();
    void foreignContentIsLeftAlone();
    void recordLifecycle_data();
    void recordLifecycle();
    void manyFilesAreRecordedOneByOne_data();
    void manyFilesAreRecordedOneByOne();
    void damagedUninstallSnapshotKeepsTheRecord_data();
    void damagedUninstallSnapshotKeepsTheRecord();

#ifdef Q_OS_WIN
    void metadataIsRestoredUnlessTakenOver_data();
    void metadataIsRestoredUnlessTakenOver();
#endif

    void migrationCleanup_data();
    void migrationCleanup();
    void hostileMigrationRecordsAreKept_data();
    void hostileMigrationRecordsAreKept();

    void crashAtEveryStepEndsOldOrNew_data();
    void crashAtEveryStepEndsOldOrNew();
    void cleanupTestCase();

private:
    int m_crashPoints = 0;
};
