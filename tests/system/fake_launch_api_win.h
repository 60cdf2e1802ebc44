#pragma once

// Substitute operating-system calls for the desktop launch: tokens are described by records, so
// every branch of the launch decision can be driven, including the ones only real Windows with
// UAC produces. The handles given out are real (unnamed events), so closing them is harmless.

#include "system/desktop_user_launch.h"

#include <QMap>
#include <QString>

struct FakeToken
{
    QString sid = QStringLiteral("S-1-5-21-1-2-3-1001");
    DWORD session = 1;
    bool elevated = false;
    TOKEN_ELEVATION_TYPE type = TokenElevationTypeDefault;
    bool hasLinked = false;   // the linked token is the second record
    TOKEN_INFORMATION_CLASS failing = TOKEN_INFORMATION_CLASS(0); // this query fails with access denied
    TOKEN_INFORMATION_CLASS shortRead = TOKEN_INFORMATION_CLASS(0); // this query returns too few bytes
    DWORD userInfoSize = 0;   // non-zero: the size TokenUser claims to need
};

struct FakeLaunchWorld
{
    QList<FakeToken> tokens;
    QMap<HANDLE, int> handles;   // handle -> token index
    bool failDuplicate = false;
    bool failEnvironment = false;
    DWORD createProcessError = 0; // non-zero: CreateProcessWithTokenW fails with it
    int environmentsCreated = 0;
    int environmentsDestroyed = 0;
    QString applicationName, commandLine, workingDirectory, desktop;
    DWORD logonFlags = 0;
    DWORD creationFlags = 0;
    int startedWith = -1;         // token index the process was started with

    HANDLE handleFor(int token);
    ~FakeLaunchWorld();
};

// The calls act on `world`, which outlives the launch.
const DesktopUser::LaunchApi &fakeLaunchApi(FakeLaunchWorld *world);
