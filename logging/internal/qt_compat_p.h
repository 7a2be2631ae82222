#ifndef QTLOG_QT_COMPAT_P_H
#define QTLOG_QT_COMPAT_P_H

//
// The differences between Qt 4.8, Qt 5 and Qt 6 that more than one unit of
// the library meets. A difference that only one unit meets sits in that
// unit, behind the same version checks, in the namespace compat as well.
//

#include <QtCore/QAtomicInt>
#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QDebug>
#include <QtCore/QMutex>
#include <QtCore/QReadWriteLock>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtCore/QThread>
#include <QtCore/QWaitCondition>
#include <QtCore/qglobal.h>

#include <climits>
#include <utility>

// A ThreadSanitizer build: the locks below tell the sanitizer what they do.
#if defined(__SANITIZE_THREAD__)
#  define QTLOG_TSAN 1
#elif defined(__has_feature)
#  if __has_feature(thread_sanitizer)
#    define QTLOG_TSAN 1
#  endif
#endif

#ifdef QTLOG_TSAN
#  if QT_VERSION < 0x050000
#    error "The ThreadSanitizer build needs Qt 5 or later"
#  endif
#  include <sanitizer/tsan_interface.h>
extern "C" void __tsan_ignore_thread_begin();
extern "C" void __tsan_ignore_thread_end();
#endif

namespace logging {
namespace compat {

// ---- Locks -----------------------------------------------------------------
//
// The library takes its locks, threads and cross-thread calls through these
// names. Normally they are Qt's own types and functions. Under
// ThreadSanitizer they tell the sanitizer about each lock and unlock: Qt's
// lock code lives in an uninstrumented library, so without this the
// sanitizer sees no ordering between two threads that use a lock and reports
// every access made under it as a race. Locks declared in the public headers
// are plain QMutex and QReadWriteLock; the lockers take those.

#ifndef QTLOG_TSAN

typedef QMutex Mutex;
typedef QWaitCondition WaitCondition;
#if QT_VERSION >= 0x060000
typedef QMutexLocker<QMutex> MutexLocker;
#else
typedef QMutexLocker MutexLocker;
#endif
typedef QReadLocker ReadLocker;
typedef QWriteLocker WriteLocker;
typedef QThread Thread;

template <typename... Args>
inline bool invokeMethod(Args &&...args)
{
    return QMetaObject::invokeMethod(std::forward<Args>(args)...);
}

#else // QTLOG_TSAN

namespace detail {
inline void lock(QMutex *mutex)
{
    __tsan_mutex_pre_lock(mutex, 0);
    mutex->lock();
    __tsan_mutex_post_lock(mutex, 0, 0);
}

inline void unlock(QMutex *mutex)
{
    __tsan_mutex_pre_unlock(mutex, 0);
    mutex->unlock();
    __tsan_mutex_post_unlock(mutex, 0);
}
} // namespace detail

// A QMutex whose own lock() and unlock() are seen by the sanitizer.
class Mutex : public QMutex
{
public:
    Mutex() = default;
    ~Mutex() { __tsan_mutex_destroy(this, 0); }

    void lock() { detail::lock(this); }
    void unlock() { detail::unlock(this); }
    bool tryLock(int timeoutMs)
    {
        __tsan_mutex_pre_lock(this, __tsan_mutex_try_lock);
        const bool locked = QMutex::tryLock(timeoutMs);
        __tsan_mutex_post_lock(this, locked ? __tsan_mutex_try_lock
                                            : __tsan_mutex_try_lock | __tsan_mutex_try_lock_failed, 0);
        return locked;
    }

private:
    Q_DISABLE_COPY(Mutex)
};

class MutexLocker
{
public:
    explicit MutexLocker(QMutex *mutex)
        : m(mutex), locked(false)
    {
        relock();
    }
    ~MutexLocker() { unlock(); }

    void unlock()
    {
        if (m && locked) {
            detail::unlock(m);
            locked = false;
        }
    }
    void relock()
    {
        if (m && !locked) {
            detail::lock(m);
            locked = true;
        }
    }
    QMutex *mutex() const { return m; }

private:
    Q_DISABLE_COPY(MutexLocker)
    QMutex *m;
    bool locked;
};

// The read or write locker of a QReadWriteLock.
template <bool Read>
class RwLocker
{
public:
    explicit RwLocker(QReadWriteLock *lock)
        : l(lock), locked(false)
    {
        relock();
    }
    ~RwLocker() { unlock(); }

    void unlock()
    {
        if (l && locked) {
            __tsan_mutex_pre_unlock(l, flags);
            l->unlock();
            __tsan_mutex_post_unlock(l, flags);
            locked = false;
        }
    }
    void relock()
    {
        if (l && !locked) {
            __tsan_mutex_pre_lock(l, flags);
            if (Read)
                l->lockForRead();
            else
                l->lockForWrite();
            __tsan_mutex_post_lock(l, flags, 0);
            locked = true;
        }
    }
    QReadWriteLock *readWriteLock() const { return l; }

private:
    Q_DISABLE_COPY(RwLocker)
    static const unsigned flags = Read ? __tsan_mutex_read_lock : 0;
    QReadWriteLock *l;
    bool locked;
};

typedef RwLocker<true> ReadLocker;
typedef RwLocker<false> WriteLocker;

// QWaitCondition::wait() unlocks the mutex and locks it again inside Qt.
class WaitCondition : public QWaitCondition
{
public:
    bool wait(QMutex *mutex, unsigned long time = ULONG_MAX)
    {
        __tsan_mutex_pre_unlock(mutex, 0);
        __tsan_mutex_post_unlock(mutex, 0);
        const bool woken = QWaitCondition::wait(mutex, time);
        __tsan_mutex_pre_lock(mutex, 0);
        __tsan_mutex_post_lock(mutex, 0, 0);
        return woken;
    }
};

// Between the construction and destruction of an IgnoreQt the sanitizer
// does not look at memory; an UnignoreQt does the opposite. For Qt code that
// hands data between threads under its own locks.
struct IgnoreQt
{
    IgnoreQt() { __tsan_ignore_thread_begin(); }
    ~IgnoreQt() { __tsan_ignore_thread_end(); }
    IgnoreQt(const IgnoreQt &) = delete;
    IgnoreQt &operator=(const IgnoreQt &) = delete;
};

struct UnignoreQt
{
    UnignoreQt() { __tsan_ignore_thread_end(); }
    ~UnignoreQt() { __tsan_ignore_thread_begin(); }
    UnignoreQt(const UnignoreQt &) = delete;
    UnignoreQt &operator=(const UnignoreQt &) = delete;
};

// A QThread whose end is seen by the sanitizer: QThread::wait() learns that
// the thread has finished through a lock inside Qt. The thread releases when
// finished() is emitted, after run() has returned, and wait() and
// isFinished() acquire once they see it finished.
class Thread : public QThread
{
public:
    explicit Thread(QObject *parent = nullptr)
        : QThread(parent)
    {
        connect(this, &QThread::finished, this, [this]() { __tsan_release(this); },
                Qt::DirectConnection);
    }

    bool wait(unsigned long time = ULONG_MAX)
    {
        const bool finished = QThread::wait(time);
        if (finished)
            __tsan_acquire(this);
        return finished;
    }
    bool isFinished() const
    {
        const bool finished = QThread::isFinished();
        if (finished)
            __tsan_acquire(const_cast<Thread *>(this));
        return finished;
    }
};

// QMetaObject::invokeMethod(). A queued call goes into the receiver's event
// queue, a list that Qt grows and moves under a lock of its own.
template <typename... Args>
inline bool invokeMethod(Args &&...args)
{
    const IgnoreQt ignore;
    return QMetaObject::invokeMethod(std::forward<Args>(args)...);
}

#endif // QTLOG_TSAN

// ---- End of locks ----------------------------------------------------------

// QDate's Julian day of 1970-01-01.
const qint64 julianDayOfEpoch = 2440588;

#if QT_VERSION < 0x050000

inline void emitMessage(QtMsgType type, const QByteArray &text)
{
    qt_message_output(type, text.constData());
}

inline void emitMessage(QtMsgType type, const QString &text)
{
    qt_message_output(type, text.toLocal8Bit().constData());
}

template <typename T, typename... Args>
inline QSharedPointer<T> makeShared(Args &&...args)
{
    return QSharedPointer<T>(new T(std::forward<Args>(args)...));
}

inline int loadRelaxed(const QAtomicInt &value)
{
    return value;
}

inline void storeRelaxed(QAtomicInt &value, int newValue)
{
    value.fetchAndStoreRelaxed(newValue);
}

// The local time msecs (since the epoch, UTC) with a fixed offset from UTC.
// Qt 4 keeps date and time as given and takes the offset as their zone: no
// conversion through the C library.
inline QDateTime offsetDateTime(qint64 msecs, int offsetSeconds)
{
    const qint64 local = msecs + qint64(offsetSeconds) * 1000;
    qint64 day = local / 86400000;
    qint64 msecOfDay = local % 86400000;
    if (msecOfDay < 0) {
        msecOfDay += 86400000;
        --day;
    }
    const int ms = int(msecOfDay);
    QDateTime result(QDate::fromJulianDay(int(day + julianDayOfEpoch)),
                     QTime(ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000), Qt::UTC);
    result.setUtcOffset(offsetSeconds);
    return result;
}

#else // Qt 5 and Qt 6

// Records name their own category as a plain string. Qt applies its logging
// rules ("*.debug=false", say) to the default category and to registered
// QLoggingCategory objects only, so the rules never drop a record on its way
// to the handler; the library filters records itself.
const char s_category[] = "qtlog";

inline void emitMessage(QtMsgType type, const QString &text)
{
    qt_message_output(type, QMessageLogContext(nullptr, 0, nullptr, s_category), text);
}

inline void emitMessage(QtMsgType type, const QByteArray &text)
{
    emitMessage(type, QString::fromLocal8Bit(text.constData(), text.size()));
}

template <typename T, typename... Args>
inline QSharedPointer<T> makeShared(Args &&...args)
{
    return QSharedPointer<T>::create(std::forward<Args>(args)...);
}

inline int loadRelaxed(const QAtomicInt &value)
{
    return value.loadRelaxed();
}

inline void storeRelaxed(QAtomicInt &value, int newValue)
{
    value.storeRelaxed(newValue);
}

// The local time msecs (since the epoch, UTC) with a fixed offset from UTC:
// date(), time() and the conversions back are plain arithmetic.
inline QDateTime offsetDateTime(qint64 msecs, int offsetSeconds)
{
    return QDateTime::fromMSecsSinceEpoch(msecs, Qt::OffsetFromUTC, offsetSeconds);
}

#endif

} // namespace compat
} // namespace logging

#endif // QTLOG_QT_COMPAT_P_H
