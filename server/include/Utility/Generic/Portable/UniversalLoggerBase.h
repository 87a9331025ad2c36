// The logging facade: how the library and the code on it write diagnostic messages without knowing where they
// go. The base class lets messages through up to a threshold and prints them on standard output; a host
// installs loggers of its own, one for each thread if it likes, through a getter.
//
//   sup::UniversalLoggerBase* const logger = sup::UniversalLoggerBase::getThreadLogger();
//   sup::UniversalLoggerBase::LogMessageAttributes attrs;
//   if (logger->calculateEnabledProviders(sup::LoggingEnums::kLogServer,
//   sup::LoggingEnums::MESSAGE_TYPE_TRACE,
//                                         sup::LoggingEnums::kSeverityForDebugOnly, kFile, kLine, attrs)) {
//       logger->logFmtToEnabledProviders(attrs, kFile, kLine, L"%ls=%ls", 80, name, value);
//   }
#pragma once

#include "Utility/Generic/Portable/RefString.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/SUPString.h"

/// The most providers that one message may name, and one.
#define UNIVERSALLOGER_MAX_PROVIDERS 16

namespace sup {

/// How messages are classified.
class BRIMPORTABLE_API LoggingEnums {
public:
    /// The lower, the more important.
    enum MessageType {
        MESSAGE_TYPE_INCIDENT_ERROR = 0,
        MESSAGE_TYPE_ERROR = 1,
        MESSAGE_TYPE_WARNING = 2,
        MESSAGE_TYPE_NOTIFICATION = 3,
        MESSAGE_TYPE_TRACE = 4
    };

    /// The logs that a message is for, as bits.
    enum LogType : unsigned int { kNotSure = 0, kLogServer = 1, kLogQuery = 2, kLogAll = 0xFFFFFFFF };

    /// Whom a message is for.
    enum Severity : int {
        kSeverityUnknown = 1,
        kSeverityDefault = 1,
        kSeverityUser = 100,
        kSeverityForEndUser = 1,
        kSeverityForVantaSupport = 16,
        kSeverityForDebugOnly = 32
    };
};

/// A destination of a host's own logger.
class BRIMPORTABLE_API UniversalLoggerProviderBase {
public:
    virtual ~UniversalLoggerProviderBase() = default;
};

/// The base logger keeps no state, so one object serves all threads.
class BRIMPORTABLE_API UniversalLoggerBase : public LoggingEnums {
public:
    /// What is known about one message besides its text.
    struct LogMessageAttributes {
        const wchar_t* m_FILE = nullptr; ///< the source file that logs; may be null
        /// Its line there.
        unsigned int m_line = 0;
        unsigned int m_logTypes = kNotSure; ///< LogType bits
        /// How important it is, and for whom.
        MessageType m_MessageType = MESSAGE_TYPE_INCIDENT_ERROR;
        int m_MessageSeverity = 0;
        /// The destinations that want it.
        UniversalLoggerProviderBase* m_UniversalLoggerProviderBase[UNIVERSALLOGER_MAX_PROVIDERS] = {};
        unsigned int m_nProviders = 0; ///< entries in use

        /// The members, read.
        const wchar_t* getFile() const noexcept { return m_FILE; }
        unsigned int getLine() const noexcept { return m_line; }
        unsigned int getLogTypes() const noexcept { return m_logTypes; }
        MessageType getMessageType() const noexcept { return m_MessageType; }
        int getMessageSeverity() const noexcept { return m_MessageSeverity; }
        unsigned int getProviderCount() const noexcept { return m_nProviders; }
        UniversalLoggerProviderBase* getProvider(unsigned int i) const noexcept {
            return m_UniversalLoggerProviderBase[i];
        }
    };

    /// Gives each thread its logger.
    class BRIMPORTABLE_API ThreadLoggerGetter {
    public:
        /// The calling thread's logger, never null.
        virtual UniversalLoggerBase* get() = 0;
        /// True when the thread has a logger that is ready.
        virtual bool isInitializedForTheThread() = 0;

    protected:
        ~ThreadLoggerGetter() = default;
    };

    /// To be spelled out by whoever installs a getter.
    enum ScaryWarning { kThisMustBeCalledOnlyByUniversalLoggerImplInUtilityGeneric = 0 };

    UniversalLoggerBase() = default;
    virtual ~UniversalLoggerBase();
    UniversalLoggerBase(const UniversalLoggerBase&) = default;
    UniversalLoggerBase& operator=(const UniversalLoggerBase&) = default;

    /// Context that following messages of the thread carry; the base ignores it.
    virtual void pushProperty(const String<wchar_t>& name, const String<wchar_t>& value);
    virtual void popProperty(const String<wchar_t>& name);

    /// Whether anybody wants the message. The base says so for types up to the threshold (the environment
    /// variable HXS_STARTUP_LOG_TYPE as it was at load, 1 when unset), fills `attrs` then, and leaves it as
    /// it is otherwise.
    virtual bool calculateEnabledProviders(LogType logTypes, MessageType type, int severity,
                                           const wchar_t* file, unsigned int line,
                                           LogMessageAttributes& attrs);
    /// Writes `length` characters of `text`, which need not end in a zero. The base calls logToCout().
    virtual void logToEnabledProviders(LogMessageAttributes& attrs, const wchar_t* file, unsigned int line,
                                       const wchar_t* text, unsigned int length);
    void logToEnabledProviders(LogMessageAttributes& attrs, const wchar_t* file, unsigned int line,
                               const RefStringTemplate<wchar_t>& text);

    /// Logs a finished text, if anybody wants it.
    void logString(LogType logTypes, MessageType type, int severity, const wchar_t* file, unsigned int line,
                   const RefStringTemplate<wchar_t>& text);
    /// Formats (as wprintf) and logs; for a message that calculateEnabledProviders() let through. The text is
    /// cut to `maxLength` - 1 characters. Up to 511 nothing is allocated; beyond, std::bad_alloc may come.
    void logFmtToEnabledProviders(LogMessageAttributes& attrs, const wchar_t* file, unsigned int line,
                                  const wchar_t* format, unsigned int maxLength, ...);

    /// The calling thread's logger. Any thread may call.
    static UniversalLoggerBase* getThreadLogger();
    /// The getter that serves until another is installed: one base logger for all threads.
    static ThreadLoggerGetter& getDefaultGetter();
    /// Installs `getter`, which must outlive every message. For start-up.
    static void setThreadLoggerGetter(ScaryWarning, ThreadLoggerGetter& getter);

    /// Fills all but the providers.
    static void populateLogMessageAttributes(LogMessageAttributes& attrs, const wchar_t* file,
                                             unsigned int line, unsigned int logTypes, MessageType type,
                                             int severity);
    /// Appends a provider. The sixteenth is an assertion failure: one slot always stays free.
    static void addProviderToAttrs(LogMessageAttributes& attrs, UniversalLoggerProviderBase* provider);

    /// Prints "file:line. text", or the text alone when `file` is null, on standard output.
    static void logToCout(const LogMessageAttributes& attrs, const wchar_t* file, int line,
                          const wchar_t* text, unsigned int length);
    static void logToCout(const LogMessageAttributes& attrs, const wchar_t* file, int line,
                          const RefStringTemplate<wchar_t>& text);
};

} // namespace sup
