// Telegrams of a TunnelClient, both ways.

#include "KnxIp/TunnelClientImplementation.h"

namespace KnxIp {

using KnxFrames::FrameError;
using KnxFrames::LData;
using KnxFrames::MessageCode;

bool TunnelClient::Implementation::Send(TimePoint now, const LData& telegram) {
    const SendQueue::PushResult pushed = m_queue.Push(telegram);
    if (pushed.wasFull) {
        ++m_counters.dropped;
        if (pushed.beginsBurst)
            m_listener.OnQueueOverflow();
    }
    SendNext(now);
    return pushed.isIn;
}

void TunnelClient::Implementation::On(TimePoint now, const Endpoint& from, const TunnellingRequest& request) {
    if (m_state != State::Connected || request.channel != m_channel)
        return;
    m_underWay.ServerSpoke();
    if (!m_config.tcp && !Acknowledge(request))
        return;
    const auto telegram = KnxFrames::ParseLData(request.cemi);
    if (!telegram) {
        m_listener.OnRefusedDatagram(from, telegram.Error());
    } else if (telegram->code == MessageCode::LDataInd) {
        ++m_counters.received;
        m_listener.OnTelegram(*telegram);
    } else if (telegram->code == MessageCode::LDataCon) {
        TakeConfirmation(now, *telegram);
    } else {
        m_listener.OnRefusedDatagram(from, FrameError::Unsupported("a server sent an L_Data.req", 0));
    }
}

/// Whether the request is a new one.
bool TunnelClient::Implementation::Acknowledge(const TunnellingRequest& request) {
    const auto verdict = m_received.Judge(request.sequence);
    if (verdict == ReceiveCounter::Verdict::Discard) {
        ++m_counters.outOfOrder;
        return false;
    }
    SendTo(m_data, WriteFrame(TunnellingAck{m_channel, request.sequence, Status::NoError}));
    if (verdict == ReceiveCounter::Verdict::Again)
        ++m_counters.duplicates;
    return verdict == ReceiveCounter::Verdict::Take;
}

void TunnelClient::Implementation::SendNext(TimePoint now) {
    if (m_state != State::Connected || m_underWay.IsActive())
        return;
    if (m_queue.IsEmpty()) {
        m_queue.EndBurst();
        return;
    }
    SendUnderWay(m_underWay.Begin(now + kAckTimeout, m_channel, m_queue.Pop()));
    if (!m_config.tcp)
        return;
    m_underWay.NeedsNoAcknowledgement(); // the stream brings it, or ends
    ++m_counters.sent;
    m_confirmDeadline = now + kConfirmTimeout;
}

void TunnelClient::Implementation::On(TimePoint now, const Endpoint&, const TunnellingAck& ack) {
    if (m_state != State::Connected || ack.channel != m_channel)
        return;
    switch (m_underWay.OnAck(ack)) {
    case PendingRequest::AckVerdict::Stale: m_underWay.ServerSpoke(); return;
    case PendingRequest::AckVerdict::Refused:
        if (ack.status == Status::ConnectionId) {
            ConnectionLost(now, LinkFailure::Forgotten);
            return;
        }
        m_underWay.ServerSpoke();
        RepeatOrGiveUp(now);
        return;
    case PendingRequest::AckVerdict::Done: break;
    }
    ++m_counters.sent;
    m_confirmDeadline = now + kConfirmTimeout;
    if (m_underWay.IsConfirmed())
        Finish(now);
}

void TunnelClient::Implementation::TakeConfirmation(TimePoint now, const LData& confirmation) {
    if (!m_underWay.OnConfirmation(confirmation))
        return;
    if (confirmation.HasConfirmError())
        ReportFailure(SendFailure::NegativeConfirm);
    // It may overtake the acknowledgement, which is then still awaited: the sequence number goes with it.
    if (m_underWay.AwaitsConfirmation())
        Finish(now);
}

void TunnelClient::Implementation::ConfirmationMissing(TimePoint now) {
    m_underWay.ForgoConfirmation();
    ReportFailure(SendFailure::NoConfirmation);
    Finish(now);
}

void TunnelClient::Implementation::Finish(TimePoint now) {
    m_underWay.Finish();
    SendNext(now);
}

void TunnelClient::Implementation::RepeatOrGiveUp(TimePoint now) {
    if (m_underWay.WasRepeated()) {
        CloseConnection(now, LinkFailure::NoAck);
        return;
    }
    ++m_counters.repeated;
    SendUnderWay(m_underWay.Repeat(now + kAckTimeout));
}

void TunnelClient::Implementation::SendUnderWay(const Datagram& datagram) {
    SendTo(m_data, datagram);
    if (m_listener.MayHaveLeft())
        m_underWay.MayHaveLeft();
}

void TunnelClient::Implementation::GiveUpTelegram(bool forgotten) {
    switch (m_underWay.End(forgotten)) {
    case TelegramUnderWay::Fate::Settled: return;
    case TelegramUnderWay::Fate::NotTaken:
        ++m_counters.resent;
        m_queue.PutBack(m_underWay.Entry());
        return;
    case TelegramUnderWay::Fate::NoAck: ReportFailure(SendFailure::NoAck); return;
    case TelegramUnderWay::Fate::Unconfirmed: ReportFailure(SendFailure::NoConfirmation); return;
    }
}

void TunnelClient::Implementation::ReportFailure(SendFailure failure) {
    switch (failure) {
    case SendFailure::NoAck: ++m_counters.noAck; break;
    case SendFailure::NoConfirmation: ++m_counters.noConfirmation; break;
    case SendFailure::NegativeConfirm: ++m_counters.negativeConfirm; break;
    }
    m_listener.OnSendFailed(m_underWay.Telegram(), failure);
}

} // namespace KnxIp
