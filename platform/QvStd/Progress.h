/// @file
/// Progress: the caller's sink, and the scoped objects through which long operations use it.
///
/// A caller derives from TQvProgressHandler and passes it (or null) to an operation. The operation
/// starts it, polls it while it works, reports positions, and stops it:
///
///     void CopyAll(const std::vector<std::string>& files, TQvProgressHandler* handler)
///     {
///         TQvProgress progress(handler); // stops it in its destructor, also after a throw
///         progress.Start();
///         for (std::size_t i = 0; i < files.size(); ++i) {
///             progress.Report(double(i) / double(files.size())); // throws TQvUserBreak
///             Copy(files[i]);
///         }
///     }
///
/// Thread-safety: a handler belongs to the thread that runs the operation.
#pragma once

#include <memory>
#include <string>

#include "QvStd/Export.h"

/// The caller's progress sink. Positions run from 0 to 1.
class QVSTD_API TQvProgressHandler
{
public:
    virtual ~TQvProgressHandler();

    /// The work begins: shows the display. Called once, unless Started is true already.
    virtual void Start() = 0;
    /// The work is over: hides the display. Must not throw.
    virtual void Stop() = 0;
    /// Whether Start was called, and Stop not since.
    virtual bool Started() const = 0;
    /// Whether positions and messages are wanted now.
    virtual bool Active() const = 0;
    /// Sets how much of the work is done, from 0 to 1; Update shows it.
    virtual void SetPosition(double position) = 0;
    /// Sets the text that names the current step; Update shows it.
    virtual void SetMessage(const std::string& message) = 0;
    /// Whether Update is due (a cheap query, called once for each entry or block).
    virtual bool Poll() = 0;
    /// Refreshes the display. Throws TQvUserBreak when the user asked to cancel.
    virtual void Update() = 0;
    /// Whether the user asked to cancel.
    virtual bool UserBreak() const = 0;
};

/// Polls `handler` (may be null) and calls its Update when it is due. Throws TQvUserBreak.
inline void QvPollProgress(TQvProgressHandler* handler)
{
    if (handler != nullptr && handler->Poll())
        handler->Update();
}

/// Lets the user cancel work that shows no progress.
class QVSTD_API TQvBreakOnly : public TQvProgressHandler
{
public:
    /// Only queries UserBreak of `handler`, which may be null and must outlive it.
    explicit TQvBreakOnly(const TQvProgressHandler* handler) : m_handler(handler) {}
    void Start() override {}
    void Stop() override {}
    bool Started() const override { return false; }
    bool Active() const override { return false; }
    void SetPosition(double) override {}
    void SetMessage(const std::string&) override {}
    bool Poll() override { return UserBreak(); }
    void Update() override;
    bool UserBreak() const override { return m_handler != nullptr && m_handler->UserBreak(); }

private:
    const TQvProgressHandler* m_handler;
};

class TQvProgressVar;

/// Scoped use of a handler. Construction starts nothing; after Start, Stop or the destructor stops
/// it. A null handler costs one branch a call.
class QVSTD_API TQvProgress
{
public:
    /// `handler` (may be null) must outlive it.
    explicit TQvProgress(TQvProgressHandler* handler) : m_handler(handler) {}
    ~TQvProgress() { Stop(); }
    TQvProgress(const TQvProgress&) = delete;
    TQvProgress& operator=(const TQvProgress&) = delete;

    /// Starts the handler unless another object has started it.
    void Start();
    /// Stops the handler if this object started it. Never throws.
    void Stop() noexcept;
    /// Whether positions and messages are wanted now.
    bool Active() const { return m_handler != nullptr && m_handler->Active(); }
    /// When active: sets the position and refreshes the display. Throws TQvUserBreak.
    void Report(double position);
    /// Sets the text that names the current step, and shows it.
    void SetMessage(const std::string& message);
    /// Whether the user asked to cancel.
    bool UserBreak() const { return m_handler != nullptr && m_handler->UserBreak(); }
    /// The handler, for calls that take one; may be null.
    TQvProgressHandler* Handler() const { return m_handler; }

    /// A separate progress whose 0 to 1 is `from` to `to` of this one. Its messages are also
    /// logged, at `messageLevel`; its start and stop at `startLevel`.
    TQvProgressVar SubProgress(double from, double to, int messageLevel, int startLevel);

private:
    TQvProgressHandler* m_handler;
    bool m_startedHere = false;
};

/// A sub-range of another progress, owned by the caller. Its Handler() is null where the outer
/// handler is null, and can be passed to any operation that takes a handler; it must not outlive
/// the outer handler.
class QVSTD_API TQvProgressVar
{
public:
    TQvProgressVar() = default;
    /// As TQvProgress::SubProgress; `outer` may be null.
    TQvProgressVar(TQvProgressHandler* outer, double from, double to, int messageLevel,
                   int startLevel);

    /// @name As those of TQvProgress
    /// @{

    /// As in TQvProgress, for the sub-range.
    void Start();
    void Stop() noexcept;
    void Report(double position);
    void SetMessage(const std::string& message);
    TQvProgressHandler* Handler() const { return m_handler.get(); }
    TQvProgressVar SubProgress(double from, double to, int messageLevel, int startLevel);
    /// @}

private:
    std::unique_ptr<TQvProgressHandler> m_handler;
};
