// Query texts and stored-query files from anywhere. The input is the text of a query, and behind a line of
// "---" the file of stored queries that it may call.
#include <MapiStore/Tables/Restriction.h>
#include <MapiStore/Values/PropertyBag.h>
#include <MapiStore/Values/PropertyCodec.h>
#include <MapiStore/Values/StoreError.h>
#include <Tools/INIQuerys.h>
#include <Tools/RestrictionTree.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "../tests/Tools/QueryFakes.h"

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

// An item with text, numbers and times under the tags that queries name most, and a bare one.
std::vector<std::string> Items() {
    CPropertyBag item;
    item.SetText(PROP_ID(PR_SUBJECT), "Gr\xC3\xBC\xC3\x9F of the day");
    item.SetText(PROP_ID(PR_BODY), "The body.");
    item.SetText(PROP_ID(PR_MESSAGE_CLASS), "IPM.Note");
    item.SetLong(PROP_ID(PR_IMPORTANCE), 2);
    item.SetLong(PROP_ID(PR_MESSAGE_FLAGS), 9);
    for (const ULONG tag : {PR_CREATION_TIME, PR_LAST_MODIFICATION_TIME, PR_MESSAGE_DELIVERY_TIME})
        item.Set(PROP_ID(tag), PT_SYSTIME, std::string("\x00\x80\x3E\xD5\xDE\xB1\x9D\x01", 8));
    return {item.Build({}).small, CPropertyBag().Build({}).small};
}

// A store refuses what no row can answer; what it takes, it can ask of any row, and a negation answers the
// opposite.
void Evaluate(const SRestriction& restriction) {
    static const std::vector<std::string> items = Items();
    try {
        const CRestriction compiled(restriction);
        SRestriction inner = restriction;
        SRestriction negation{};
        negation.rt = RES_NOT;
        negation.res.resNot.lpRes = &inner;
        const CRestriction opposite(negation);
        for (const std::string& item : items)
            Require(compiled.Matches(CBlockRow(item)) != opposite.Matches(CBlockRow(item)));
    } catch (const CStoreError&) {
    }
}

void Walk(CCompileRestriction& compiler) {
    RestrictionTree(compiler.Restriction());
    if (compiler.Restriction()) Evaluate(*compiler.Restriction());
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
