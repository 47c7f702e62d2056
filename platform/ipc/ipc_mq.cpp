// In-process message queue: a FIFO of message pointers under one mutex.
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <new>

#include "ipc_internal.h"
#include "zp_mem.h"

struct ipc_mq_cb {
    std::mutex lock;
    std::condition_variable ready;
    std::deque<void *> msgs;
};

using namespace zp_ipc;

IPC_EXPORT zp_sdk_ipc_ret_value ipc_mq_create(zp_uint32 /*flag*/, ipc_mq_cb_pt *mq)
{
    if (mq == nullptr)
        return IPC_INVALID_PARA;
    *mq = new (std::nothrow) ipc_mq_cb;
    return *mq != nullptr ? IPC_OK : IPC_SYS_ERR;
}

IPC_EXPORT zp_sdk_ipc_ret_value ipc_mq_send(ipc_mq_cb_pt mq, void *msg, zp_uint32 /*flag*/, zp_uint32 /*pri*/)
{
    if (mq == nullptr || msg == nullptr)
        return IPC_INVALID_PARA;
    {
        std::lock_guard<std::mutex> hold(mq->lock);
        if (mq->msgs.size() >= IPC_MQ_MAX_DEPTH)
            return IPC_MQ_FULL;
        mq->msgs.push_back(msg);
    }
    mq->ready.notify_one();
    return IPC_OK;
}

IPC_EXPORT zp_sdk_ipc_ret_value ipc_mq_recv(ipc_mq_cb_pt mq, void **msg, zp_int32 timeout)
{
    if (mq == nullptr || msg == nullptr)
        return IPC_INVALID_PARA;
    *msg = nullptr;
    std::unique_lock<std::mutex> hold(mq->lock);
    auto has_work = [mq] { return !mq->msgs.empty(); };
    if (timeout < 0) {
        mq->ready.wait(hold, has_work);
    } else if (!mq->ready.wait_for(hold, std::chrono::milliseconds(timeout), has_work)) {
        return timeout == 0 ? IPC_MQ_EMPTY : IPC_TIMEOUT;
    }
    *msg = mq->msgs.front();
    mq->msgs.pop_front();
    return IPC_OK;
}

IPC_EXPORT zp_sdk_ipc_ret_value ipc_mq_destroy(ipc_mq_cb_pt mq)
{
    if (mq == nullptr)
        return IPC_INVALID_PARA;
    for (void *m : mq->msgs)
        mem_free_ex(tid16(), 0, 0, m);
    delete mq;
    return IPC_OK;
}
