#pragma once

#include <QCoreApplication>
#include <QThread>

// The engine's two ways to reach the main thread from its worker: waiting for the work, or not.
// On the main thread itself both run the work at once.
namespace CVMediaSpannerThreads {

inline bool onMainThread()
{
    return !QCoreApplication::instance() || QThread::currentThread() == QCoreApplication::instance()->thread();
}

template<typename F>
void onMainThreadAndWait(F work)
{
    if (onMainThread())
        work();
    else
        QMetaObject::invokeMethod(QCoreApplication::instance(), work, Qt::BlockingQueuedConnection);
}

template<typename F>
void onMainThreadLater(F work)
{
    if (onMainThread())
        work();
    else
        QMetaObject::invokeMethod(QCoreApplication::instance(), work, Qt::QueuedConnection);
}

} // namespace CVMediaSpannerThreads
