/* The demo product's maintenance service, "BrisaLinkerMaintenance" (see docs/maintenance-service.md).
   Run by the service control manager as "bl-maintenance.exe" --service; from a command line it
   answers the installer's protocol:
     --status                 one JSON object: service, version, policy digest and validity
     --check-program <path>   whether the policy lets the service act on that program
   Its policy is "policy.ini" beside the program. Anything the policy does not name, or names with
   another SHA-256, is refused. */
#include <windows.h>
#include <bcrypt.h>
#include <stdio.h>
#include <wchar.h>

#define SERVICE_NAME L"BrisaLinkerMaintenance"
#define MAX_PROGRAMS 16

typedef struct {
    wchar_t installDir[MAX_PATH];
    wchar_t names[MAX_PROGRAMS][MAX_PATH];
    wchar_t digests[MAX_PROGRAMS][65];
    int count;
    BOOL valid;
    wchar_t digest[65]; /* of policy.ini itself */
} Policy;

static SERVICE_STATUS_HANDLE statusHandle;
static SERVICE_STATUS status;
static HANDLE stopEvent;

static BOOL besideProgram(const wchar_t *name, wchar_t *path)
{
    wchar_t *slash;
    if (!GetModuleFileNameW(NULL, path, MAX_PATH) || !(slash = wcsrchr(path, L'\\')))
        return FALSE;
    slash[1] = 0;
    return wcslen(path) + wcslen(name) < MAX_PATH && wcscat(path, name) != NULL;
}

/* SHA-256 of a file as 64 lower-case hexadecimal digits; opened without following a link. */
static BOOL fileDigest(const wchar_t *path, wchar_t *hex)
{
    BCRYPT_ALG_HANDLE algorithm = NULL;
    BCRYPT_HASH_HANDLE hash = NULL;
    UCHAR value[32], buffer[65536];
    DWORD read = 0, i;
    BOOL ok = FALSE;
    HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, NULL, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, NULL);
    BY_HANDLE_FILE_INFORMATION information;
    if (file == INVALID_HANDLE_VALUE)
        return FALSE;
    if (GetFileInformationByHandle(file, &information) && !(information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)
        && BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA256_ALGORITHM, NULL, 0) == 0
        && BCryptCreateHash(algorithm, &hash, NULL, 0, NULL, 0, 0) == 0) {
        ok = TRUE;
        while (ok && ReadFile(file, buffer, sizeof(buffer), &read, NULL) && read > 0)
            ok = BCryptHashData(hash, buffer, read, 0) == 0;
        ok = ok && BCryptFinishHash(hash, value, sizeof(value), 0) == 0;
    }
    for (i = 0; ok && i < 32; ++i)
        swprintf(hex + 2 * i, 3, L"%02x", value[i]);
    if (hash)
        BCryptDestroyHash(hash);
    if (algorithm)
        BCryptCloseAlgorithmProvider(algorithm, 0);
    CloseHandle(file);
    return ok;
}

/* A program name the policy may hold: relative, "/"-separated, no empty, "." or ".." part. */
static BOOL safeRelative(const wchar_t *name)
{
    const wchar_t *part = name;
    if (!name[0] || name[0] == L'/' || wcschr(name, L'\\') || wcschr(name, L':'))
        return FALSE;
    for (;;) {
        const wchar_t *end = wcschr(part, L'/');
        size_t length = end ? (size_t)(end - part) : wcslen(part);
        if (length == 0 || (length == 1 && part[0] == L'.') || (length == 2 && part[0] == L'.' && part[1] == L'.'))
            return FALSE;
        if (!end)
            return TRUE;
        part = end + 1;
    }
}

static void readPolicy(Policy *policy)
{
    wchar_t path[MAX_PATH], keys[8192], schema[16];
    const wchar_t *key;
    ZeroMemory(policy, sizeof(*policy));
    if (!besideProgram(L"policy.ini", path) || !fileDigest(path, policy->digest))
        return;
    GetPrivateProfileStringW(L"policy", L"schema", L"", schema, 16, path);
    GetPrivateProfileStringW(L"policy", L"installDir", L"", policy->installDir, MAX_PATH, path);
    GetPrivateProfileStringW(L"programs", NULL, L"", keys, 8192, path);
    policy->valid = wcscmp(schema, L"1") == 0 && policy->installDir[0] != 0;
    for (key = keys; *key && policy->valid; key += wcslen(key) + 1) {
        wchar_t *digest = policy->digests[policy->count];
        GetPrivateProfileStringW(L"programs", key, L"", digest, 65, path);
        policy->valid = policy->count < MAX_PROGRAMS && safeRelative(key) && wcslen(digest) == 64
            && wcsspn(digest, L"0123456789abcdef") == 64;
        if (policy->valid)
            wcscpy(policy->names[policy->count++], key);
    }
}

/* 0 when the policy names this program under the installation directory and its content has the
   recorded digest; otherwise a reason. */
static const char *programRefusal(const Policy *policy, const wchar_t *program)
{
    wchar_t expected[MAX_PATH * 2], actual[65];
    int i;
    if (!policy->valid)
        return "invalid_policy";
    for (i = 0; i < policy->count; ++i) {
        wchar_t *c;
        swprintf(expected, MAX_PATH * 2, L"%ls\\%ls", policy->installDir, policy->names[i]);
        for (c = expected; *c; ++c)
            if (*c == L'/')
                *c = L'\\';
        if (_wcsicmp(expected, program) != 0)
            continue;
        if (!fileDigest(program, actual))
            return "unreadable";
        return wcscmp(actual, policy->digests[i]) == 0 ? NULL : "digest_mismatch";
    }
    return "not_in_policy";
}

static void report(DWORD state)
{
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
    status.dwWaitHint = state == SERVICE_RUNNING || state == SERVICE_STOPPED ? 0 : 3000;
    SetServiceStatus(statusHandle, &status);
}

static DWORD WINAPI control(DWORD code, DWORD type, void *data, void *context)
{
    (void)type; (void)data; (void)context;
    if (code == SERVICE_CONTROL_STOP || code == SERVICE_CONTROL_SHUTDOWN) {
        report(SERVICE_STOP_PENDING);
        SetEvent(stopEvent);
        return NO_ERROR;
    }
    return code == SERVICE_CONTROL_INTERROGATE ? NO_ERROR : ERROR_CALL_NOT_IMPLEMENTED;
}

static void WINAPI serviceMain(DWORD argc, wchar_t **argv)
{
    Policy policy;
    (void)argc; (void)argv;
    statusHandle = RegisterServiceCtrlHandlerExW(SERVICE_NAME, control, NULL);
    if (!statusHandle)
        return;
    stopEvent = CreateEventW(NULL, TRUE, FALSE, NULL);
    readPolicy(&policy);
    /* Without a valid policy the service acts on nothing: it stops at once with an error. */
    if (!stopEvent || !policy.valid) {
        status.dwWin32ExitCode = ERROR_INVALID_DATA;
        report(SERVICE_STOPPED);
        return;
    }
    report(SERVICE_RUNNING);
    WaitForSingleObject(stopEvent, INFINITE);
    report(SERVICE_STOPPED);
}

static int printStatus(void)
{
    Policy policy;
    readPolicy(&policy);
    printf("{\"service\":\"BrisaLinkerMaintenance\",\"version\":\"%ls\",\"policySha256\":\"%ls\",\"policyValid\":%s}\n",
           DEMO_VERSION_TEXT, policy.digest, policy.valid ? "true" : "false");
    return policy.valid ? 0 : 2;
}

static int checkProgram(const wchar_t *program)
{
    Policy policy;
    const char *refusal;
    readPolicy(&policy);
    refusal = programRefusal(&policy, program);
    if (refusal)
        printf("{\"allowed\":false,\"reason\":\"%s\"}\n", refusal);
    else
        printf("{\"allowed\":true}\n");
    return refusal ? 3 : 0;
}

int wmain(int argc, wchar_t **argv)
{
    SERVICE_TABLE_ENTRYW services[] = { { (wchar_t *)SERVICE_NAME, serviceMain }, { NULL, NULL } };
    if (argc == 2 && wcscmp(argv[1], L"--service") == 0)
        return StartServiceCtrlDispatcherW(services) ? 0 : (int)GetLastError();
    if (argc == 2 && wcscmp(argv[1], L"--status") == 0)
        return printStatus();
    if (argc == 3 && wcscmp(argv[1], L"--check-program") == 0)
        return checkProgram(argv[2]);
    fprintf(stderr, "usage: bl-maintenance.exe --status | --check-program <path> | --service\n");
    return 1;
}
