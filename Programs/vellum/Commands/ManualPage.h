// The manual page, made from what the commands say of themselves.
#pragma once
#include <CLI/CLI.hpp>

#include <string>

// In the language of man pages (troff with the man macros), section 1.
std::string ManualPage(const CLI::App& app);
