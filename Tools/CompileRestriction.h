// The query language: compiles the text of a query to a restriction, and on request to a set of columns
// and a sort order, in the published MAPI structures; prints restrictions as text.
//
//   CCompileRestriction compiler;
//   PrepareQueryCompiler(compiler, folder, session, queries);      (Tools/INIQuerys.h)
//   if (compiler.Compile(text)) table->Restrict(compiler.Restriction(), TBL_BATCH);
//
// One object serves one thread. Nothing here throws but where it says so, or for lack of memory.
#pragma once
#include <MapiWrapper/MapiContainer.h>
#include <MapiWrapper/MapiSession.h>
#include <Platform/MapiHeaders.h>
#include <Tools/QueryLexer.h>
#include <Tools/QueryMemory.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

class CINIQuery;
class CINIQuerys;
class CUserFields;
struct CLiteral;

class CCompileRestriction {
public:
    CCompileRestriction();
    // Frees all results; whoever still uses them must be done.
    virtual ~CCompileRestriction();
    CCompileRestriction(const CCompileRestriction&) = delete;
    CCompileRestriction& operator=(const CCompileRestriction&) = delete;

    // --- what a compilation stands on ------------------------------------------------------------
    // The folder whose store numbers the named properties; null: words for named properties are then
    // no fields. A `select ... from` in a text replaces it. One reference is taken.
    void SetFolder(IMAPIContainer* folder);
    IMAPIContainer* Folder() const { return m_folder.Get(); }  // no reference is added
    // The session whose stores `select ... from` may name; null: that form is an error. One reference
    // is taken.
    void SetSession(IMAPISession* session);
    IMAPISession* Session() const { return m_session.Raw(); }  // no reference is added
    // The queries that a text may call by name; not owned, must outlive the compilations. A call
    // stores its arguments in the query's parameters. Null: none.
    void SetStoredQueries(CINIQuerys* queries) { m_storedQueries = queries; }
    CINIQuerys* StoredQueries() const { return m_storedQueries; }
    // Whether names that the store does not know are created in it (the default), as a run does. Otherwise
    // each stands for a property that no object has. AbsentNames lists those of them that are not among the
    // words of UserFields, over all texts compiled so far.
    void SetCreateNames(bool create) { m_createNames = create; }
    const std::vector<std::string>& AbsentNames() const { return m_absentNames; }
    // The words for named properties, beside the names of the published tags.
    CUserFields& UserFields() { return *m_userFields; }

    // --- compiling -------------------------------------------------------------------------------
    // Frees the former results and compiles `text`, which ends at its first zero byte. True without an
    // error. An empty text compiles to no restriction. Text behind a complete expression is ignored.
    // Nesting, of brackets as of the resulting tree, is limited to kMaxDepth levels, and what stored
    // queries expand to, to kMaxExpansion bytes; beyond is an error. Linear in the text.
    bool Compile(const std::string& text);
    static constexpr unsigned kMaxDepth = 200;
    static constexpr size_t kMaxExpansion = 4u << 20;

    bool HasError() const { return m_hasError; }
    // All messages of the last compilation, each with a blank before it; empty without an error.
    const std::string& ErrorText() const { return m_errorText; }
    // What the messages leave unsaid, or what to write instead; a sentence without its full stop, mostly
    // empty.
    const std::string& ErrorHint() const { return m_errorHint; }
    // The code of a store that refused to number a name, which is no fault of the text; S_OK otherwise.
    HRESULT StoreError() const { return m_storeError; }
    // What compiles and seldom means what its writer thought, a sentence each without full stop.
    const std::vector<std::string>& Warnings() const { return m_warnings; }
    // Where the scanner stood at the first error: a byte offset into the compiled text, at most its
    // length; inside a stored query that of the query's call.
    size_t ErrorOffset() const { return m_errorOffset; }
    // The stored query in whose text the first error arose; empty for the compiled text itself.
    const std::string& ErrorQuery() const { return m_errorQuery; }

    // Where the expression ended after a compilation without an error: the length of the text, or the
    // offset of what stands behind the expression and was not read.
    size_t EndOffset() const { return m_endOffset; }

    // Whether the expression is a word or value that is compared with nothing, as "Subject" or "today": such
    // a text restricts nothing.
    bool IsLoneValue() const { return m_isLoneValue; }

    // The results. Owned by this object: valid until the next Compile or its destruction, also where
    // they were handed to a table (a table copies what it needs). Null where the text says nothing of
    // the kind; after an error the restriction is null.
    SRestriction* Restriction() const { return m_restriction; }
    SPropTagArray* Columns() const { return m_columns; }  // of `select`, with the used tags behind
    SSortOrderSet* SortOrder() const { return m_sortOrder; }
    // The properties that the texts compiled so far name, once each, in the order of discovery.
    const std::vector<ULONG>& UsedTags() const { return m_usedTags; }

    // `array` (null counts as empty) with the used tags that it lacks behind it. The caller frees the
    // result with MAPIFreeBuffer; null only for lack of memory.
    SPropTagArray* MergeUsedTags(const SPropTagArray* array) const;

    // The tag that a word of the language names, 0 if it names none: "Subject", "0x37001e",
    // "string:Name", "Private". Named properties are created in the folder's store (SetCreateNames). Throws
    // CMAPIException if the store refuses that.
    ULONG TagOfWord(const std::string& word);

    // The word by which a text named a tag first, for a heading; PrintTag's text for any other tag.
    std::string WordOfTag(ULONG tag) const;

    // --- printing --------------------------------------------------------------------------------
    // Text close to the language, for a person; not all of it compiles again. A null node is "(NULL)".
    std::string PrintRestriction(const SRestriction* node) const;
    std::string PrintTag(ULONG tag) const;  // PrintTagIn with the folder
    std::string PrintTagIn(IMAPIProp* prop, ULONG tag) const;
    static std::string PrintFuzzy(ULONG level);
    static std::string PrintRelop(ULONG relop);
    static std::string PrintValue(const SPropValue* value);  // null: empty
    // Cuts `text` at white space into lines of at least `length` bytes, each ended by CR LF.
    static std::string WrapText(const std::string& text, size_t length);

private:
    // Scanner and errors
    int NextToken() { return m_lexer.NextToken(); }
    void UngetToken() { m_lexer.UngetToken(); }
    void Error(const std::string& message);
    void Crash(const std::string& hint);
    void Expect(int token, const char* message);
    void Run();

    // Grammar
    void Expression();
    void Relation();
    void Primary();
    void PrimaryWord();
    void PrimaryBracket();
    void PrimaryNot();
    void FuzzyValue(int token);
    void PrimaryDate();
    void PrimaryDaysFromNow();
    void PrimaryBit();
    void PrimarySubObject(ULONG subObject);
    void PrimaryUserField();
    void PrimaryExists();
    void PrimarySize();
    void OrderClause();
    SSortOrder OrderKey();

    // Table selection
    void SelectClause();
    bool SelectFields(std::vector<std::string>& fields, int& token);
    bool SelectFrom();
    void SelectColumns(const std::vector<std::string>& fields);
    void OpenTable(const std::string& path);
    void OpenTableByPath(const CMapiRowSet& stores, const std::string& path);
    void OpenTableByEntryId(const CMapiRowSet& stores, const std::string& hex);
    void ReplaceFolder(const IMAPIPropPtr& opened);

    // Stored queries
    void ExpandQuery(CINIQuery& query);
    void ReadArguments(CINIQuery& query);

    // Building
    void Push(std::unique_ptr<CLiteral> literal);
    std::unique_ptr<CLiteral> Pop();
    void PushRestriction(SRestriction* node, unsigned depth, size_t spare = 0);
    void PushText(const std::string& text, int type, ULONG flag);
    void PushDay(LONG day, LONG month, LONG year);
    void PushToday(LONG daysBack);
    void PushNow();
    ULONG ResolveField(const CLiteral* literal);
    ULONG LookUpField(const CLiteral& literal);
    template <class Name>
    ULONG NamedTag(const GUID& guid, Name name, ULONG type, const std::string& word);
    ULONG ResolveTyped(const std::string& name, ULONG type);
    ULONG ResolveUserField(const std::string& name);
    LONG NumberOf(const CLiteral& literal);
    void Warn(const std::string& warning);
    SPropValue* LiteralValue(ULONG tag, const CLiteral& literal);
    void FillGuid(SPropValue& value, const std::string& text);
    void BuildRelation(ULONG relop);
    bool FillRelation(SRestriction& node, ULONG relop, ULONG tag, const CLiteral& value);
    bool FillBitmask(SRestriction& node, ULONG relop, ULONG tag, const CLiteral& value);
    void Combine(ULONG kind);
    void AddUsedTag(ULONG tag);
    void StoreSortOrder(const std::vector<SSortOrder>& keys);
    void Reset();

    CQueryLexer m_lexer;
    CQueryMemory m_memory;  // behind the restriction
    std::vector<std::unique_ptr<CLiteral>> m_literalStack;
    std::vector<ULONG> m_usedTags;
    std::unordered_map<ULONG, std::string> m_words;  // of the tags that were named
    std::vector<std::string> m_callStack;            // names of the stored queries being expanded
    const std::string* m_textOf = nullptr;  // the stored query that the scanner reads; null: the text
    size_t m_callOffset = 0;                // where the text called the outermost of them
    size_t m_cbExpanded = 0;
    unsigned m_depth = 0;
    bool m_hasError = false;
    std::string m_errorText;
    std::string m_errorHint;
    HRESULT m_storeError = S_OK;
    std::vector<std::string> m_warnings;
    bool m_createNames = true;
    std::vector<std::string> m_absentNames;
    ULONG m_absentId = 0xFFFF;  // counts down: a store gives these numbers last of all
    size_t m_errorOffset = 0;
    size_t m_endOffset = 0;
    bool m_isLoneValue = false;
    std::string m_errorQuery;
    CINIQuerys* m_storedQueries = nullptr;
    IMAPIContainerPtr m_folder;
    CMapiSession m_session;
    std::unordered_map<std::string, ULONG> m_namedTags;  // answers of the folder's store
    SRestriction* m_restriction = nullptr;
    SPropTagArray* m_columns = nullptr;
    SSortOrderSet* m_sortOrder = nullptr;
    std::unique_ptr<CUserFields> m_userFields;
};
