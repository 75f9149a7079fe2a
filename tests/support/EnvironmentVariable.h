// An environment variable that is set while it lives.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

class TEnvironmentVariable
{
public:
    TEnvironmentVariable(const char* name, const std::string& value) : m_name(name)
    {
        if (const char* before = std::getenv(name))
            m_before = before;
        setenv(name, value.c_str(), 1);
    }
    TEnvironmentVariable(const TEnvironmentVariable&) = delete;
    ~TEnvironmentVariable() { m_before ? setenv(m_name, m_before->c_str(), 1) : unsetenv(m_name); }

private:
    const char* m_name;
    std::optional<std::string> m_before;
};
