#pragma once

#include "support/test_https_server.h"

#include <QObject>
#include <QTemporaryDir>

class TestDownload : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase() { m_server.stop(); }
    void init();

    // tst_download.cpp: the manifest and the network.
    void manifest_data();
    void manifest();
    void stallRule_data();
    void stallRule();
    void prefetch_data();
    void prefetch();

    // tst_manifest_signature.cpp: the publisher's signature, checked before the manifest is read.
    void servedManifest_data();
    void servedManifest();

    // tst_download_cache.cpp: download runs against server faults and cached files, restarts.
    void cacheDirectory_data();
    void cacheDirectory();
    void download_data();
    void download();
    void cancelDuringCacheVerification_data();
    void cancelDuringCacheVerification();
    void killedAndRestarted_data();
    void killedAndRestarted();
    void cacheNeverFollowsALink();

private:
    QString cacheRoot() const { return m_cache->path(); }

    TestHttpsServer m_server;
    std::unique_ptr<QTemporaryDir> m_cache;
    bool m_localTls = true;
};
