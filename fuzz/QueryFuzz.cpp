// Query texts and stored-query files from anywhere. The input is the text of a query, and behind a line of
// "---" the file of stored queries that it may call.
#include <Tools/INIQuerys.h>
#include <Tools/RestrictionTree.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "../tests/Tools/QueryFakes.h"

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

void Walk(CCompileRestriction& compiler) {
    RestrictionTree(compiler.Restriction());
    const std::string printed = compiler.PrintRestriction(compiler.Restriction());
    CCompileRestriction::WrapText(printed, 40);
    MAPIFreeBuffer(compiler.MergeUsedTags(compiler.Columns()));
    compiler.SetStoredQueries(nullptr);
    compiler.Compile(printed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t cut = input.find("\n---\n");
    const std::string text = input.substr(0, cut);
    CINIQuerys querys;
    if (cut != std::string::npos) querys.Parse(input.substr(cut + 5), "fuzz.ini");

    CFakeFolder folder;
    {
        CCompileRestriction compiler;
        PrepareQueryCompiler(compiler, &folder, nullptr, &querys);
        AddTestFields(compiler);
        if (compiler.Compile(text)) {
            Walk(compiler);
        } else {
            Require(!compiler.ErrorText().empty());
            Require(compiler.ErrorOffset() <= text.size());
            Require(compiler.Restriction() == nullptr);
        }
    }
    Require(folder.References() == 1);
    return 0;
}
