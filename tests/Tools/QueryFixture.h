// A compiler over a folder that only numbers names, with the words of the tests.
#pragma once
#include <Tools/RestrictionTree.h>
#include <gtest/gtest.h>

#include <string>

#include "QueryFakes.h"

class QueryFixture : public ::testing::Test {
protected:
    QueryFixture() {
        m_compiler.SetFolder(&m_folder);
        AddTestFields(m_compiler);
    }

    // The tree, or "error:" and the messages.
    std::string Compiled(const std::string& text) {
        if (!m_compiler.Compile(text)) return "error:" + m_compiler.ErrorText();
        return RestrictionTree(m_compiler.Restriction());
    }

    CFakeFolder m_folder;
    CCompileRestriction m_compiler;
};
