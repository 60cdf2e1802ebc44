#include "system/installation_permissions.h"
#include "system/access_list_win.h"
#include "system/desktop_user_launch.h"
#include "system/handles_win.h"

#include <QDir>

#include <sddl.h>

namespace InstallationPermissions {

namespace {

constexpr DWORD reparsePointRefused = 4393;
const char *const dataDirectories[] = { "logs", "cfgdata", ".staging", ".downloads", "assets" };
const QString lockFileName = QStringLiteral(".brisalinker.lock");

QString native(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

// Never through a link: the handle is to the entry itself. Without delete sharing nothing we
// hold can be renamed or replaced while the transaction runs.
UniqueHandle openObject(const QString &path, DWORD sharing = FILE_SHARE_READ | FILE_SHARE_WRITE)
{
    const HANDLE handle = CreateFileW(wideChars(native(path)), READ_CONTROL | WRITE_DAC | FILE_READ_ATTRIBUTES | SYNCHRONIZE,
                                      sharing, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    return UniqueHandle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

// 0 or the Windows error; the descriptor is self-relative.
DWORD readSecurity(HANDLE handle, SECURITY_INFORMATION parts, QByteArray *descriptor)
{
    DWORD needed = 0;
    GetKernelObjectSecurity(handle, parts, nullptr, 0, &needed);
    if (needed == 0)
        return GetLastError();
    QByteArray buffer(int(needed), Qt::Uninitialized);
    if (!GetKernelObjectSecurity(handle, parts, buffer.data(), needed, &needed))
        return GetLastError();
    *descriptor = buffer;
    return ERROR_SUCCESS;
}

PACL daclOf(const QByteArray &descriptor)
{
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL dacl = nullptr;
    auto *security = const_cast<char *>(descriptor.constData());
    if (!GetSecurityDescriptorDacl(security, &present, &dacl, &defaulted) || !present)
        return nullptr;
    return dacl;
}

bool sameObject(const BY_HANDLE_FILE_INFORMATION &a, const BY_HANDLE_FILE_INFORMATION &b)
{
    return a.dwVolumeSerialNumber == b.dwVolumeSerialNumber && a.nFileIndexHigh == b.nFileIndexHigh
        && a.nFileIndexLow == b.nFileIndexLow;
}

// Removes one entry the transaction made, through a handle to the entry itself.
bool removeCreated(const QString &path)
{
    const HANDLE handle = CreateFileW(wideChars(native(path)), DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return GetLastError() == ERROR_FILE_NOT_FOUND;
    const UniqueHandle owned(handle);
    FILE_DISPOSITION_INFO disposition {};
    disposition.DeleteFile = TRUE;
    return SetFileInformationByHandle(handle, FileDispositionInfo, &disposition, sizeof(disposition));
}

} // namespace

Transaction::~Transaction()
{
    closeHandles();
}

void Transaction::closeHandles()
{
    for (Object &object : m_objects) {
        CloseHandle(static_cast<HANDLE>(object.handle));
        object.handle = nullptr;
    }
    if (m_impersonation)
        CloseHandle(static_cast<HANDLE>(m_impersonation));
    m_impersonation = nullptr;
}

bool Transaction::apply(const QString &root, Handle token, QString *error)
{
    bool applied = validateRoot(root, token) && identifyUser(token) && collect(m_root, true);
    for (auto object = m_objects.begin(); applied && object != m_objects.end(); ++object)
        applied = grant(*object);
    if (!applied && error)
        *error = failure();
    return applied;
}

bool Transaction::identifyUser(Handle token)
{
    m_userSidText = tokenSid(token);
    PSID sid = nullptr;
    if (m_userSidText.isEmpty() || !ConvertStringSidToSidW(wideChars(m_userSidText), &sid))
        return fail(QStringLiteral("identify_user"), m_root, ERROR_INVALID_SID);
    const UniqueLocal<void> ownedSid(sid);
    m_userSid = QByteArray(static_cast<const char *>(sid), int(GetLengthSid(sid)));
    // The access check needs an impersonation token; the desktop token is a primary one.
    HANDLE impersonation = nullptr;
    if (!DuplicateTokenEx(static_cast<HANDLE>(token), TOKEN_QUERY | TOKEN_IMPERSONATE, nullptr, SecurityImpersonation,
                          TokenImpersonation, &impersonation)) {
        return fail(QStringLiteral("identify_user"), m_root, GetLastError());
    }
    m_impersonation = impersonation;
    return true;
}

bool Transaction::createDataEntries(const QString &root)
{
    for (const char *name : dataDirectories) {
        const QString path = root + QLatin1Char('/') + QLatin1String(name);
        if (CreateDirectoryW(wideChars(native(path)), nullptr))
            m_created << path;
        else if (const DWORD error = GetLastError(); error != ERROR_ALREADY_EXISTS)
            return fail(QStringLiteral("create_data_directory"), path, error);
    }
    const QString lock = root + QLatin1Char('/') + lockFileName;
    const HANDLE handle = CreateFileW(wideChars(native(lock)), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                      FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (handle != INVALID_HANDLE_VALUE) {
        CloseHandle(handle);
        m_created << lock;
    } else if (const DWORD error = GetLastError(); error != ERROR_FILE_EXISTS) {
        return fail(QStringLiteral("create_lock"), lock, error);
    }
    return true;
}

bool Transaction::collect(const QString &path, bool isRoot)
{
    if (!isRoot && path.section(QLatin1Char('/'), -1).compare(QLatin1String("bl-maintenance.exe"), Qt::CaseInsensitive) == 0)
        return fail(QStringLiteral("reject_service_payload"), path, ERROR_ACCESS_DENIED);
    if (isRoot && !createDataEntries(path))
        return false;
    UniqueHandle handle = openObject(path);
    if (!handle)
        return fail(QStringLiteral("open"), path, GetLastError());
    BY_HANDLE_FILE_INFORMATION information {};
    if (!GetFileInformationByHandle(handle.get(), &information))
        return fail(QStringLiteral("inspect"), path, GetLastError());
    if (information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)
        return fail(QStringLiteral("reject_reparse_point"), path, reparsePointRefused);
    const bool directory = information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
    // A second name may lie outside the product: rights granted here would reach it too.
    if (!directory && information.nNumberOfLinks > 1)
        return fail(QStringLiteral("reject_hard_link"), path, ERROR_INVALID_DATA);
    m_objects.push_back({ path, handle.release(), directory, modifyAccess, {}, m_created.contains(path) });
    if (!directory)
        return true;

    WIN32_FIND_DATAW entry {};
    const UniqueFind find(FindFirstFileExW(wideChars(native(path + QStringLiteral("/*"))), FindExInfoBasic, &entry,
                                           FindExSearchNameMatch, nullptr, 0));
    if (find.get() == INVALID_HANDLE_VALUE)
        return fail(QStringLiteral("enumerate"), path, GetLastError());
    do {
        const QString name = QString::fromWCharArray(entry.cFileName);
        if (name == QLatin1String(".") || name == QLatin1String(".."))
            continue;
        // The maintenance service's folder keeps the rights its own setup gives it.
        if (isRoot && name.compare(QLatin1String("WinServices"), Qt::CaseInsensitive) == 0)
            continue;
        const QString child = path + QLatin1Char('/') + name;
        // The listing already tells a link; some file systems do not say so through the handle.
        if (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)
            return fail(QStringLiteral("reject_reparse_point"), child, reparsePointRefused);
        if (!collect(child, false))
            return false;
    } while (FindNextFileW(find.get(), &entry));
    if (const DWORD error = GetLastError(); error != ERROR_NO_MORE_FILES)
        return fail(QStringLiteral("enumerate"), path, error);
    return true;
}

bool Transaction::grant(Object &object)
{
    const auto held = static_cast<HANDLE>(object.handle);
    // The path must still name the object we hold, and it must still be neither a link nor a
    // file with a second name.
    const UniqueHandle again = openObject(object.path, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    if (!again)
        return fail(QStringLiteral("open"), object.path, GetLastError());
    BY_HANDLE_FILE_INFORMATION before {};
    BY_HANDLE_FILE_INFORMATION now {};
    if (!GetFileInformationByHandle(held, &before) || !GetFileInformationByHandle(again.get(), &now))
        return fail(QStringLiteral("inspect"), object.path, GetLastError());
    if (!sameObject(before, now))
        return fail(QStringLiteral("inspect"), object.path, ERROR_FILE_INVALID);
    if ((before.dwFileAttributes | now.dwFileAttributes) & FILE_ATTRIBUTE_REPARSE_POINT)
        return fail(QStringLiteral("reject_reparse_point"), object.path, reparsePointRefused);
    if (!object.directory && now.nNumberOfLinks > 1)
        return fail(QStringLiteral("reject_hard_link"), object.path, ERROR_INVALID_DATA);

    QByteArray former;
    if (const DWORD error = readSecurity(held, DACL_SECURITY_INFORMATION, &former))
        return fail(QStringLiteral("read_acl"), object.path, error);
    object.formerDescriptor = former;
    // A missing (null) list lets everybody in; merging into it would lock everybody else out.
    const PACL old = daclOf(former);
    if (!old || !IsValidAcl(old))
        return fail(QStringLiteral("validate_acl"), object.path, ERROR_INVALID_ACL);

    const auto sid = static_cast<PSID>(m_userSid.data());
    UniqueLocal<ACL> merged;
    if (const DWORD error = AccessList::mergeGrant(old, sid, object.access, object.directory, &merged))
        return fail(QStringLiteral("merge_acl"), object.path, error);
    if (!AccessList::keepsDenials(old, merged.get()))
        return fail(QStringLiteral("preserve_denials"), object.path, ERROR_ACCESS_DENIED);

    // Written through the handle: no walk by name that a link could redirect, and the object's
    // protection and inheritance flags stay as they were.
    SECURITY_DESCRIPTOR descriptor;
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    constexpr SECURITY_DESCRIPTOR_CONTROL kept = SE_DACL_PROTECTED | SE_DACL_AUTO_INHERITED;
    if (!InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION)
        || !SetSecurityDescriptorDacl(&descriptor, TRUE, merged.get(), FALSE)
        || !GetSecurityDescriptorControl(former.data(), &control, &revision)
        || !SetSecurityDescriptorControl(&descriptor, kept, control & kept)
        || !SetKernelObjectSecurity(held, DACL_SECURITY_INFORMATION, &descriptor)) {
        return fail(QStringLiteral("write_acl"), object.path, GetLastError());
    }

    QByteArray written;
    if (const DWORD error = readSecurity(held, OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &written))
        return fail(QStringLiteral("verify_acl"), object.path, error);
    // Some file systems keep a list in their own form (reordered, or mapped onto other
    // permissions); what must have arrived is the grant, and not one denial may be gone.
    const PACL stored = daclOf(written);
    if (!stored || !AccessList::holdsGrant(stored, sid, object.access, object.directory)
        || !AccessList::keepsDenials(merged.get(), stored)) {
        return fail(QStringLiteral("verify_acl"), object.path, ERROR_INVALID_ACL);
    }

    GENERIC_MAPPING mapping { FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS };
    DWORD desired = object.access;
    MapGenericMask(&desired, &mapping);
    PRIVILEGE_SET privileges {};
    DWORD privilegesSize = sizeof(privileges);
    DWORD granted = 0;
    BOOL allowed = FALSE;
    if (!AccessCheck(written.data(), static_cast<HANDLE>(m_impersonation), desired, &mapping, &privileges,
                     &privilegesSize, &granted, &allowed)) {
        return fail(QStringLiteral("verify_access"), object.path, GetLastError());
    }
    if (!allowed || (granted & desired) != desired)
        return fail(QStringLiteral("verify_access"), object.path, ERROR_ACCESS_DENIED);
    return true;
}

bool Transaction::rollback()
{
    bool complete = true;
    for (auto object = m_objects.rbegin(); object != m_objects.rend(); ++object) {
        if (object->formerDescriptor.isEmpty())
            continue;
        if (!SetKernelObjectSecurity(static_cast<HANDLE>(object->handle), DACL_SECURITY_INFORMATION,
                                     object->formerDescriptor.data())) {
            const DWORD error = GetLastError();
            if (m_log)
                m_log(QStringLiteral("Directory permission restore failed: path=%1 windows_error=%2").arg(object->path).arg(error));
            complete = false;
        }
    }
    // Our own handles would keep the created entries from being deleted.
    closeHandles();
    for (auto path = m_created.crbegin(); path != m_created.crend(); ++path) {
        if (!removeCreated(*path)) {
            const DWORD error = GetLastError();
            if (m_log)
                m_log(QStringLiteral("Directory permission clean-up failed: path=%1 windows_error=%2").arg(*path).arg(error));
            complete = false;
        }
    }
    m_objects.clear();
    m_created.clear();
    return complete;
}

Handle desktopToken()
{
    const HWND shell = GetShellWindow();
    DWORD processId = 0;
    if (!shell || !GetWindowThreadProcessId(shell, &processId) || processId == 0)
        return nullptr;
    // With SeDebugPrivilege enabled by the caller this reaches processes that a plain limited
    // query cannot.
    UniqueHandle process(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, processId));
    if (!process)
        process.reset(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
    if (!process)
        return nullptr;
    HANDLE token = nullptr;
    if (!OpenProcessToken(process.get(), TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE, &token))
        return nullptr;
    return token;
}

QString tokenSid(Handle token)
{
    return DesktopUser::tokenSid(static_cast<HANDLE>(token));
}

} // namespace InstallationPermissions
