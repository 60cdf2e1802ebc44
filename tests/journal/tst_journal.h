#pragma once

#include <QObject>

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
};
