// A progress handler that records its calls, and cancels on request.
#pragma once

#include <string>
#include <vector>

#include "QvStd/Message.h"
#include "QvStd/Progress.h"

class TTestProgress : public TQvProgressHandler
{
public:
    void Start() override { m_started = ++Starts > 0; }
    void Stop() override { m_started = false; }
    bool Started() const override { return m_started; }
    bool Active() const override { return m_started; }
    void SetPosition(double position) override { Positions.push_back(position); }
    void SetMessage(const std::string& message) override { Messages.push_back(message); }
    bool Poll() override
    {
        ++Polls;
        return UserBreak();
    }
    void Update() override
    {
        if (UserBreak())
            throw TQvUserBreak();
    }
    bool UserBreak() const override
    {
        return BreakAfter >= 0 && Polls + static_cast<int>(Positions.size()) > BreakAfter;
    }

    int BreakAfter = -1; ///< polls and positions before the user breaks; never when negative
    int Starts = 0;
    int Polls = 0;
    std::vector<double> Positions;
    std::vector<std::string> Messages;

private:
    bool m_started = false;
};
