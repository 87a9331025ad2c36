// The operating-system layer: start-up and shutdown of the library, and SystemUtility, the static functions
// of this layer and of the code-page layer.
//
// Environment variables are read as they are at the call unless a comment says "cached": such a value stays
// for the life of the process. Variables must not be changed while other threads read them.
#pragma once

#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/SUPOSBase.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/SUPTranscode.h"
#include "Utility/Generic/Portable/memallocnewdel.h"

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <pthread.h>
#include <vector>

/// The process's and the machine's memory, in bytes.
struct SUMemStat {
    std::uint64_t resident;    ///< of the process, in memory now
    std::uint64_t virtualSize; ///< of the process's address space
    std::uint64_t peak;        ///< the most that was resident at once
    std::uint64_t free;        ///< of the machine, available without swapping
    std::uint64_t total;       ///< of the machine
};

/// The calls that led to a place. Init() is cheap enough for a failure path; ResolveSymbols() reads symbol
/// tables and allocates. One object belongs to one thread.
class BRIMPORTABLE_API CallStack {
public:
    /// The most calls that are kept.
    static constexpr int kMostFrames = 64;

    /// Captures the calling thread's return addresses, its own excluded, the innermost first.
    void Init() noexcept;
    /// The addresses captured.
    int GetFrameCount() const noexcept { return m_nFrames; }
    /// Turns each address into a line, "module : symbol()+offset" where the symbol is known (C++ names
    /// demangled), "module : +offset" where it is not.
    void ResolveSymbols();
    /// Joins the resolved lines with line feeds into `buffer` of `size` characters, cut and zero-terminated.
    /// Returns the characters written, without the zero.
    std::size_t ToString(char* buffer, std::size_t size) const noexcept;
    /// The same, widened.
    std::size_t FillToString(wchar_t* buffer, std::size_t size) const;

private:
    void* m_frames[kMostFrames] = {};
    int m_nFrames = 0;
    std::vector<sup::String<char>, BrimStlAllocator<sup::String<char>>> m_lines;
};

/// Static functions of the code-page layer and of the operating-system layer.
class BRIMPORTABLE_API SystemUtility {
public:
    SystemUtility() = delete;

    // ---- Code pages ---------------------------------------------------------------------------------------
    // A code page is a number in the Windows numbering; 0 stands for GetACP(). transcodercache.h lists the
    // built-in pages. Any thread may call.

    /// The code page of the process's narrow text: OSAbstraction::g_clientCodePage.
    static unsigned int GetMultiByteCodePage();
    /// The code page of the process's LC_CTYPE locale as it was at the first call.
    static unsigned int GetACP();
    /// "ANSI" gives what GetACP() has found so far (0 before its first call), "UTF8" 65001, each in any case;
    /// everything else gives -1.
    static int GetCodePageFromString(const sup::String<wchar_t>& name);
    /// True for "ANSI" and "UTF8" in any case; null is false.
    static bool IsValidCodePage(const char* name);

    // ---- Conversions --------------------------------------------------------------------------------------
    // A source length of -1 means a zero-terminated source, whose zero is converted and counted. The result
    // is the number of units written. With a null destination, or one of length 0 or less, it is the number
    // needed. A destination that is too small receives what fits, possibly cut inside a character, and the
    // result is 0. So it is for a null source, a length below -1, a result beyond INT_MAX, and an unknown
    // code page once the error-message manager has returned from its report. Throws std::bad_alloc.

    /// Convert between wide text (or 16-bit units) and bytes of `codePage`; UTF-8 where the name says so.
    static int WideCharToMultiByte(const wchar_t* src, int srcLen, char* dst, int dstLen,
                                   unsigned int codePage);
    static int WideCharToMultiByte(const wchar_t* src, char* dst, int dstLen, unsigned int codePage);
    static int WideCharToUTF8(const wchar_t* src, char* dst, int dstLen);
    static int MultiByteToWideChar(const char* src, int srcLen, wchar_t* dst, int dstLen,
                                   unsigned int codePage);
    static int MultiByteToWideChar(const char* src, wchar_t* dst, int dstLen, unsigned int codePage);
    static int UTF8ToWideChar(const char* src, wchar_t* dst, int dstLen);
    static int MultiByteToUcs2(const char* src, int srcLen, unsigned short* dst, int dstLen,
                               unsigned int codePage);
    static int MultiByteToUcs2(const char* src, unsigned short* dst, int dstLen, unsigned int codePage);
    static int Ucs2ToMultiByte(const unsigned short* src, int srcLen, char* dst, int dstLen,
                               unsigned int codePage);
    static int Ucs2ToMultiByte(const unsigned short* src, char* dst, int dstLen, unsigned int codePage);

    // ---- Locales ------------------------------------------------------------------------------------------

    /// Sets the C library's locale for `category` by product locale name: the system locale that the locale
    /// file gives for it, else the name itself. When neither can be set, E_Portable_LocaleUnavailable is
    /// reported with the name and the fallback, "C", and the fallback is set. Returns the system name of the
    /// locale now set. For start-up: other threads must not use the locale meanwhile. A null name is the
    /// environment's locale.
    static const char* NCSetLocale(int category, const char* locale);
    /// The system locale of the first entry of the locale file with this code page; empty when there is none.
    static sup::String<char> GetSystemLocaleFromCodePage(unsigned int codePage);

    // ---- Environment --------------------------------------------------------------------------------------

    /// The value of an environment variable; false and an empty `value` when it is absent. An empty variable
    /// is present. Each variable found is traced through the thread's logger.
    static bool Getenv(const sup::String<wchar_t>& name, sup::String<wchar_t>& value);
    /// Its value as a number (BaseStringUtil::StringToInteger); `value` is untouched when it is absent.
    static bool Getenv(const sup::String<wchar_t>& name, int& value);
    /// Its value as a number, or `defaultValue` when it is absent.
    static int GetenvWithDefault(const sup::String<wchar_t>& name, int defaultValue);
    /// True when the variable is there, empty or not.
    static bool hasEnv(const sup::String<wchar_t>& name);
    /// Sets a variable, in the place of an existing one. False when the system refuses.
    static bool Putenv(const sup::String<wchar_t>& name, const sup::String<wchar_t>& value);
    /// "LD_LIBRARY_PATH".
    static sup::String<wchar_t> GetPathVariableKeyWord();
    /// Appends ":" and `dir` to LD_LIBRARY_PATH, for the processes that this one starts. Always true.
    static bool SetDllSearchPath(const sup::String<wchar_t>& dir);

    // ---- Settings from the environment --------------------------------------------------------------------

    /// QUAY_RPC_TIMEOUT, or 540.
    static int GetRPCTimeoutSeconds();
    /// KROS_NUMBER_OF_PROCESSORS when it is a number above 0, else the processors online. Cached. Throws an
    /// int of value 0 when the system cannot tell.
    static int GetNumberOfProcessors();
    /// FEN_MAX_FILE_HANDLES, else the soft limit on open files, else 125.
    static int GetMaximumFileHandles();
    /// The language of messages, such as "en" or "zh-CN": the one that was set; else VANTA_HX_LANG; else from
    /// the name of the process's LC_CTYPE locale, which this call sets from the environment. Stores the
    /// result with SetErrorMessageLang(). Always true.
    static bool GetErrorMessageLang(sup::String<wchar_t>& lang);
    /// Longer than 255 characters is not stored.
    static void SetErrorMessageLang(const sup::String<wchar_t>& lang);
    /// VANTA_HX_HALOMANAGED as a truth value, cached once it is set; false before.
    static bool AreWeHaloManagedComponent();
    /// A feature is on while a file of its name exists in the directory "featureflags" of the product's home.
    static bool IsFeatureEnabled(const sup::String<wchar_t>& feature);
    /// The feature "noninstancemode", cached.
    static bool IsLegacyInstanceMode();
    /// The feature "contentstorage".
    static bool IsCCSAvailable();
    /// The same.
    static bool IsFSSv2Available();

    // ---- Component identity -------------------------------------------------------------------------------
    // These and the directories below always give a usable value; the result says whether it is real (from
    // the environment, or derived) or a fallback.

    /// INSTANCE_NAME, or "instance1".
    static bool GetInstanceName(sup::String<wchar_t>& name);
    /// The type that SUPEnvInit associated, or "default".
    static bool GetComponentType(sup::String<wchar_t>& type);
    /// COMPONENT_NAME, cached; or the associated type's default name.
    static bool GetComponentName(sup::String<wchar_t>& name);
    /// The component name. Always true.
    static bool GetUniqueIdentifier(sup::String<wchar_t>& identifier);
    /// The component name and "-diagnostic.log".
    static void GetServerLogFileName(sup::String<wchar_t>& name);
    /// The component name and "-query.log".
    static void GetQueryLogFileName(sup::String<wchar_t>& name);
    /// The server log's name: both write one file.
    static void GetClusterLogFileName(sup::String<wchar_t>& name);
    /// "core". Always true.
    static bool GetHXApplicationGroup(sup::String<wchar_t>& group);

    // ---- Directories --------------------------------------------------------------------------------------
    // None is created. `path` comes through CleanupPath(), with the exceptions noted.

    /// The product's home: HX_PRODUCT_HOME, VANTA_HX_HOME, or VANTA_HOME/hx where that holds the product;
    /// cached. Else VANTA_HOME as it stands, or "/vanta/home", and false.
    static bool GetVantaHXHomeDirectory(sup::String<wchar_t>& path);
    /// VANTA_HOME where it holds the product; when it is unset, VANTA_HX_HOME without its last three
    /// characters; else "/vanta/home" and false.
    static bool GetVantaHomeDirectory(sup::String<wchar_t>& path);
    /// VANTA_INSTANCE, cached as it is written: later calls give it without CleanupPath(). Else
    /// "/vanta/instance" under TMP, TEMP, TEMPDIR or "/tmp", and false.
    static bool GetVantaInstanceDirectory(sup::String<wchar_t>& path);
    /// DOMAIN_HOME; else TMP, TEMP, TEMPDIR or "/tmp" and false. Cached in both cases.
    static bool GetDomainHomeDirectory(sup::String<wchar_t>& path);
    /// home/hxfoundation/server/bin
    static bool GetServerBinDirectory(sup::String<wchar_t>& path);
    /// home/hxfoundation/server/locale
    static bool GetServerLocaleDirectory(sup::String<wchar_t>& path);
    /// VANTA_HX_ROOTDIR; else home/hxfoundation and false.
    static bool GetRootDirectory(sup::String<wchar_t>& path);
    /// root/server where that is a directory, else root.
    static bool GetProgramDirectory(sup::String<wchar_t>& path);
    /// TIMEZONE_PATH, or root, and "/timezone".
    static bool GetTimeZoneDirectory(sup::String<wchar_t>& path);
    /// domain/servers
    static bool GetDomainServersDirectory(sup::String<wchar_t>& path);
    /// domain/config/plxconfig/hxenv/KROCCS
    static bool GetEnvKROCCSDirectory(sup::String<wchar_t>& path);
    /// domain/config/plxconfig/hxenv/core
    static bool GetEnvCoreDirectory(sup::String<wchar_t>& path);
    /// domain/hxdata
    static bool GetDefaultDataDirectory(sup::String<wchar_t>& path);
    /// The configuration: VANTA_HX_CONFIG_DIR when it is not empty, domain/config/plxconfig/hxconfig under a
    /// real domain; else empty and false.
    static bool GetVantaHXConfigDir(sup::String<wchar_t>& path);
    /// config/KROCCS; "/KROCCS" and false without a configuration.
    static bool GetConfigKROCCSDirectory(sup::String<wchar_t>& path);
    /// config/core; "/core" and false without a configuration.
    static bool GetSharedConfigDirectory(sup::String<wchar_t>& path);
    /// The same.
    static bool GetHXAppGroupDirectory(sup::String<wchar_t>& path);
    /// config and the component type; empty and false without a configuration.
    static bool GetConfigDirectory(sup::String<wchar_t>& path);
    /// domain/servers/ and the component name; false when either is a fallback.
    static bool GetComponentDirectory(sup::String<wchar_t>& path);
    /// The component directory and "/logs".
    static bool GetLogDirectory(sup::String<wchar_t>& path);
    /// VANTA_HX_CACHEDIR; else VANTA_HX_CACHE_BASE_DIR, the component name and "cache", or empty and false
    /// when that base is not a directory; else the component directory and "/cache".
    static bool GetComponentCacheDirectory(sup::String<wchar_t>& path);
    /// The same with VANTA_HX_TEMPDIR, VANTA_HX_TEMP_BASE_DIR and "tmp".
    static bool GetTempDirectory(sup::String<wchar_t>& path);

    // ---- Files and directories ----------------------------------------------------------------------------
    // Operations return false, sizes 0, on failure and leave errno for GetLastSystemError(). All go through
    // the pointers of OSAbstraction.

    /// True when the process can change into `path`. It does so for a moment, so no other thread may depend
    /// on the working directory meanwhile; calls of this and of GetFullDirectoryPath() wait for each other.
    static bool IsValidDirectory(const sup::String<wchar_t>& path);
    /// True when the directory exists or was created, with the permissions that the umask leaves.
    static bool MakeDirectory(const sup::String<wchar_t>& path);
    /// The same with all missing parents.
    static bool MakeDirectories(const sup::String<wchar_t>& path);
    /// True for whatever stat(2) finds, directories included.
    static bool IsFileExist(const sup::String<wchar_t>& path);
    /// The working directory of the process.
    static bool GetCurrentWorkingDirectory(sup::String<wchar_t>& path);
    static bool ChangeCurrentWorkingDirectory(const sup::String<wchar_t>& path);
    /// `dir` without symbolic links and relative parts; `path` is untouched on failure. Changes the working
    /// directory for a moment as IsValidDirectory() does.
    static bool GetFullDirectoryPath(const sup::String<wchar_t>& dir, sup::String<wchar_t>& path);
    /// In bytes.
    static std::uint64_t GetFileSize(const sup::String<wchar_t>& path);
    static std::uint64_t GetFileSize(int descriptor);
    /// The block size that suits the file's reads and writes, in bytes.
    static std::uint64_t GetBlockSize(const sup::String<wchar_t>& path);
    /// Copies the bytes of a file. The target is made with permissions 0700 at most, or emptied first. False,
    /// with nothing touched, when the source does not exist or is a directory, when the target exists and
    /// `overwrite` is false, when both are one file, and when a path has more than 4095 bytes. Files are
    /// opened by OSAbstraction::g_wopenFuncPtr.
    static bool CopyFile(const sup::String<wchar_t>& source, const sup::String<wchar_t>& target,
                         bool overwrite);

    // ---- Time ---------------------------------------------------------------------------------------------

    /// Milliseconds since midnight UTC: from 86,399,999 it goes back to 0.
    static unsigned int GetTimeInMilliSeconds();
    /// Milliseconds since `start`, a value of GetTimeInMilliSeconds() less than a day ago.
    static unsigned int GetElapsedTime(unsigned int start);
    /// Milliseconds since the epoch modulo 4,294,967,295.
    static unsigned int getRefElapsedMilliseconds();
    /// Seconds since the epoch, the low 32 bits.
    static unsigned int GetTimeOfDayInSeconds();
    /// Seconds since the epoch, and the milliseconds of the running second.
    static void GetTimeOfDay(unsigned int& seconds, unsigned int& milliseconds);
    /// Now and `ms` milliseconds, on the system's clock (CLOCK_REALTIME).
    static void RelativeTime2AbsoluteTime(unsigned int ms, std::timespec* absolute);
    /// Sleeps for `ms` milliseconds, signals notwithstanding.
    static void Sleep(unsigned int ms);
    /// strftime(3), widened: the characters put into `buffer` of `length`, without the zero; 0 and an empty
    /// text when they do not fit.
    static std::size_t Wcsftime(wchar_t* buffer, std::size_t length, const char* format, const std::tm* time);

    // ---- The process, its user and its terminal -----------------------------------------------------------

    /// Numbers of the system: getpid(2), pthread_self(3).
    static int GetCurrentProcessID() noexcept;
    static pthread_t GetCurrentThreadID() noexcept;
    /// The short name of the program.
    static sup::String<wchar_t> GetCurrentProcessName();
    /// The user who logged in at the terminal, at most `length` characters of the name. On failure false,
    /// with the system's text in `error`.
    static bool GetOSLoginName(sup::String<wchar_t>& name, sup::String<wchar_t>& error, int length);
    /// The state of BrimRand_to_rand_r(), one for the process; load time seeds it from the clock.
    static void SetSeedValue(unsigned int seed) noexcept;
    /// The next value of rand_r(3). Not for secrets.
    static int BrimRand_to_rand_r() noexcept;
    /// Runs `command` in a shell and returns the first line it writes, at most `length` bytes of it, without
    /// the line end; empty on failure.
    static sup::String<wchar_t> GetFirstLineFromExecutable(const sup::String<wchar_t>& command, int length);
    /// The first line of a file, at most 512 bytes of it, without the line end; with `viaPipe` that of the
    /// output of the command `path`.
    static sup::String<wchar_t> GetFirstLineFromFile(const sup::String<wchar_t>& path, bool viaPipe);
    /// Switches the echo of standard input's terminal, at once; nothing when it is none.
    static void SetTerminalEcho(bool on);
    /// Prints `prompt` and reads a line from standard input, with the echo off, into `buffer` of `length`
    /// bytes: cut to what fits, without up to two line-end characters. False, with an empty text, when
    /// nothing could be read. The echo is back on every way out, by a signal too. The caller wipes its buffer
    /// after use.
    static bool GetPasswordFromTerminal(const char* prompt, char* buffer, int length);
    /// Prints narrow text on standard output, whether that is a narrow or a wide stream, with a line feed and
    /// a flush on request.
    static void PrintMultiByteString(const char* text, bool lineFeed, bool flush);
    /// Processors online; at least 1.
    static int GetNumberOfLogicalProcessors() noexcept;
    /// False, with zeros, where /proc does not tell.
    static bool GetMemStat(SUMemStat& stat);
    /// Calls Init() of `stack`.
    static void GetCurrentCallStack(CallStack& stack) noexcept;

    // ---- Host names and addresses -------------------------------------------------------------------------
    // Failures of the resolver give empty results.

    /// The machine's name, its first label only.
    static sup::String<wchar_t> GetHostName();
    /// The canonical name that the resolver gives for the machine.
    static sup::String<wchar_t> GetFullyQualifiedDomainName();
    /// The text before the first ".".
    static sup::String<wchar_t> GetHostNameFromFQDN(const sup::String<wchar_t>& name);
    /// Four numbers from 0 to 255 between dots.
    static bool IsIPv4Address(const sup::String<wchar_t>& text);
    /// A name with a "." in it that is no IPv4 address.
    static bool IsFullyQualifiedDomainName(const sup::String<wchar_t>& text);
    /// Splits "host:port" at the last ":"; the brackets of an IPv6 literal are taken off. False, with nothing
    /// changed, when there is no ":" after the first character.
    static bool ExtractHostAndPort(const sup::String<wchar_t>& text, sup::String<wchar_t>& host,
                                   sup::String<wchar_t>& port);
    /// Appends the numeric addresses of `host`. `family` is AF_INET or AF_INET6; anything else stands for
    /// both.
    static void GetHostIPAddresses(int family, const sup::String<wchar_t>& host, BrimStringVector& list);

    // ---- Formatting ---------------------------------------------------------------------------------------

    /// The wide characters that the formatted text needs, without its zero; negative when the format cannot
    /// be expanded.
    static int GetTotalSizeOfVariableArgumentList(const wchar_t* format, va_list args);

    // ---- Errors of the operating system -------------------------------------------------------------------

    /// The calling thread's errno.
    static int GetLastSystemError() noexcept;
    /// The system's text for it.
    static sup::String<wchar_t> GetLastSystemErrorString();
    /// The system's text for error number `code`, also for a number that it does not know.
    static void GetSystemErrorString(int code, sup::String<wchar_t>& text);
    static sup::String<wchar_t> GetSystemErrorString(int code);
};

/// What kind of component a process is, and the name of an instance of it that has none.
class BRIMPORTABLE_API ComponentNames {
public:
    /// Keeps both texts as they are.
    ComponentNames(const sup::String<wchar_t>& componentType, const sup::String<wchar_t>& defaultInstanceName)
        : m_componentType(componentType), m_defaultInstanceName(defaultInstanceName) {}

    /// What the constructor was given.
    const sup::String<wchar_t>& GetComponentType() const noexcept { return m_componentType; }
    const sup::String<wchar_t>& GetDefaultInstanceName() const noexcept { return m_defaultInstanceName; }

private:
    sup::String<wchar_t> m_componentType;
    sup::String<wchar_t> m_defaultInstanceName;
};

/// Associates the process with a component type: sets COMPONENT_TYPE where it is absent, keeps the type and
/// the default component name, and creates the component's directories. The first association wins for the
/// life of the process. Always true. For start-up, since the environment changes.
class BRIMPORTABLE_API SUPEnvInit {
public:
    SUPEnvInit() = delete;

    /// Associate the type that the name tells: KROS, KROPS, KROCCS, KROSCH.
    static bool KROS_TYPE();
    static bool KROPS_TYPE();
    static bool CCS_TYPE();
    static bool KROSCH_TYPE();
    /// Besides, a missing DOMAIN_HOME counts as no failure from now on.
    static bool ODBC_COMP_TYPE();
    /// Associate the types KROSCHClient, KROCCSClient and KRODIS, and any type.
    static bool SCHEDULER_CLIENT_TYPE();
    static bool CCS_CLIENT_TYPE();
    static bool SYNC_TYPE();
    static bool AssociateCompType(const ComponentNames& names);

    /// True from the first association on.
    static bool getComponentNamesSet() noexcept {
        return m_componentNamesSet.load(std::memory_order_acquire);
    }
    /// Empty before the association, and fixed after it.
    static const sup::String<wchar_t>& getComponentType() noexcept { return m_componentType; }
    static const sup::String<wchar_t>& getDefaultComponentName() noexcept { return m_defaultComponentName; }

private:
    static std::atomic<bool> m_componentNamesSet;
    static sup::String<wchar_t> m_componentType;
    static sup::String<wchar_t> m_defaultComponentName;
};

/// The addresses of this machine.
class BRIMPORTABLE_API MachineIP {
public:
    /// Looks up the host's own name: its first IPv4 address, else its first IPv6 address. What was found
    /// before stays when there is neither.
    void RetrievingIP();
    /// The address in network byte order: 4 bytes, 16, or none.
    void GetIP(std::vector<unsigned char>& bytes) const { bytes = m_ipAddr; }

private:
    std::vector<unsigned char> m_ipAddr;
};

/// Start and stop of a process that uses the library. Most of the library needs neither: it is ready when it
/// is loaded. A host that has work of its own at start derives a class, overrides InitializeMapping() and
/// installs an object of it first.
///
///   UtilityInitializer::SetMappingInitializer(new ServerInitializer);  // optional
///   UtilityInitializer::Initialize();
///   UtilityInitializer::RegisterShutdownCallback(&closeLogs);
///   ...
///   UtilityInitializer::Shutdown();
///
/// Nothing here locks: calls belong to the main thread at start and stop.
class BRIMPORTABLE_API UtilityInitializer : public memalloc::MemAllocNewdel {
public:
    UtilityInitializer() noexcept;
    virtual ~UtilityInitializer();
    UtilityInitializer(const UtilityInitializer&) = delete;
    UtilityInitializer& operator=(const UtilityInitializer&) = delete;

    /// Makes the base initialiser unless one is installed, calls its InitializeMapping(), and counts. Each
    /// call needs a Shutdown().
    static void Initialize();
    /// The outermost one calls the shutdown callbacks, in the order of their addresses, and deletes the
    /// initialiser. The callbacks stay registered for a next time. Nothing when there is no initialiser. An
    /// exception of a callback ends the call: the rest stays as it is.
    static void Shutdown();
    /// True while an initialiser is installed.
    static bool IsInitialized() noexcept;
    /// Installs `p`, made with `new`, in the place of the one before, which is deleted. It is called by the
    /// next Initialize().
    static void SetMappingInitializer(UtilityInitializer* p);
    /// `fn` is called once at each full shutdown, however often it is registered. Callbacks must not register
    /// or unregister any.
    static void RegisterShutdownCallback(void (*fn)());
    /// Takes a callback back; nothing when it is not registered.
    static void UnregisterShutdownCallback(void (*fn)());
    /// The environment, one variable a line under a heading; whatever begins with the name of the credential,
    /// in any case, is masked.
    static sup::String<wchar_t> DumpEnvVariablesToString();

protected:
    /// The work at start. The base version registers the event source, once in the process.
    virtual void InitializeMapping();
    /// True while a second initialiser is alive beside the installed one.
    static bool IsWithinEscalatingInitialization() noexcept;
    /// The name for the system's event log. Nothing on this platform, whose system log has a fixed identity.
    static void RegisterEventSource(const sup::String<char>& name);
};

/// Makes each "//" of `path` a "/", in one pass from left to right, and takes one "/" off its end. "/"
/// becomes empty.
BRIMPORTABLE_API void CleanupPath(sup::String<wchar_t>& path);
