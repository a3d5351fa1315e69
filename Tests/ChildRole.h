#pragma once

#include <map>
#include <string_view>
#include <vector>

/// What a test executable does when a test starts it as a child process: `/proc/self/exe` with the
/// role's name as its first argument.
///
///     const ChildRole kHang({ "hang" }, [](int, char**) { return pause(); });
class ChildRole {
public:
    /// Takes the arguments of `main`; returns the child's exit status.
    using Body = int (*)(int count, char** arguments);

    /// @param names no other role of the same executable has them; they do not begin with a dash
    ChildRole(const std::vector<std::string_view>& names, Body body)
    {
        for (const std::string_view name : names)
            all().emplace(name, body);
    }

    /// The roles by their names.
    static std::map<std::string_view, Body>& all()
    {
        static std::map<std::string_view, Body> roles;
        return roles;
    }
};
