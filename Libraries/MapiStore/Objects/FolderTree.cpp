#include "FolderTree.h"

#include <Platform/Machine.h>

#include <MapiStore/Values/PropertyBag.h>
#include <MapiStore/Values/StoreError.h>
#include <MapiStore/Values/TextFold.h>
#include "Message.h"

namespace {

constexpr unsigned kDeepestFolder = 512;  // more can only be a damaged hierarchy

std::string_view NameIn(std::string_view block) {
    CStoredValue value;
    return CValueBlock(block).Find(PROP_ID(PR_DISPLAY_NAME), value) ? value.Bytes() : std::string_view();
}

std::vector<ObjectId> ChildrenOf(CStoreCore& core, ObjectId folder) {
    std::vector<ObjectId> children;
    core.Storage().ScanFolders(
        folder, [&children](const FolderHead& head, std::string_view) { children.push_back(head.id); });
    return children;
}

std::vector<ObjectId> MessagesOf(CStoreCore& core, ObjectId folder, bool associated) {
    std::vector<ObjectId> messages;
    core.Storage().ScanMessageHeads(folder, associated, [&messages](const MessageHead& head) {
        messages.push_back(head.id);
        return true;
    });
    return messages;
}

void SetNewSearchKey(CPropertyBag& bag) {
    const GUID key = NewGuid();
    bag.Set(PROP_ID(PR_SEARCH_KEY), PT_BINARY, {reinterpret_cast<const char*>(&key), sizeof key});
}

void DeleteTreeAt(CStoreCore& core, ObjectId folder, unsigned depth) {
    Require(depth < kDeepestFolder, MAPI_E_CORRUPT_STORE);
    for (const ObjectId child : ChildrenOf(core, folder))
        DeleteTreeAt(core, child, depth + 1);
    FolderHead head;
    std::string block;
    if (!core.Storage().ReadFolder(folder, head, block)) return;
    DeleteContents(core, folder, false);
    DeleteContents(core, folder, true);
    core.Storage().DeleteFolder(folder);
    core.Publish({fnevObjectDeleted, MAPI_FOLDER, folder, head.parent, 0, 0});
}

// The folder itself, as a new one under another parent.
ObjectId CopyFolderRow(CStoreCore& from, ObjectId folder, CStoreCore& to, ObjectId parent,
                       const std::string& name) {
    FolderHead head;
    MessageSnapshot properties;
    Require(from.Storage().ReadFolder(folder, head, properties.small), MAPI_E_NOT_FOUND);
    from.Storage().ReadLarge(folder, properties.large);
    const auto mapped = MapSnapshot(from, to, std::make_shared<const MessageSnapshot>(std::move(properties)));
    CPropertyBag bag;
    bag.Load(mapped->small);
    bag.SetText(PROP_ID(PR_DISPLAY_NAME), name);
    SetNewSearchKey(bag);
    FolderHead copy = head;
    copy.id = to.NextFolder();
    copy.parent = parent;
    copy.change = to.NextChange();
    to.Storage().WriteFolder(copy, bag.Build({}).small);
    if (!mapped->large.empty()) to.Storage().WriteLarge(copy.id, mapped->large);
    to.Publish({fnevObjectCreated, MAPI_FOLDER, copy.id, parent, 0, 0});
    if (&from == &to) to.Publish({fnevObjectCopied, MAPI_FOLDER, copy.id, parent, folder, head.parent});
    return copy.id;
}

ObjectId CopyTreeAt(CStoreCore& from, ObjectId folder, CStoreCore& to, ObjectId parent,
                    const std::string& name, bool deep, unsigned depth) {
    Require(depth < kDeepestFolder, MAPI_E_CORRUPT_STORE);
    // Listed first: a copy into the same tree must not find its own result.
    const auto children = deep ? ChildrenOf(from, folder) : std::vector<ObjectId>();
    const ObjectId copy = CopyFolderRow(from, folder, to, parent, name);
    for (const bool associated : {false, true})
        CopyContents(from, folder, to, copy, associated);
    for (const ObjectId child : children)
        CopyTreeAt(from, child, to, copy, NameOfFolder(from, child), true, depth + 1);
    return copy;
}

}  // namespace

ObjectId FindChild(CStoreCore& core, ObjectId parent, std::string_view name) {
    if (!core.Habits().Has(HABIT_NAMES_WITHOUT_CASE)) return core.Storage().FindFolder(parent, name);
    std::u32string wanted, folded;
    FoldUtf8(name, kFoldCase, wanted);
    ObjectId found = 0;
    core.Storage().ScanFolders(parent, [&](const FolderHead& head, std::string_view block) {
        FoldUtf8(NameIn(block), kFoldCase, folded);
        if (!found && folded == wanted) found = head.id;
    });
    return found;
}

std::string NameOfFolder(CStoreCore& core, ObjectId folder) {
    FolderHead head;
    std::string block;
    Require(core.Storage().ReadFolder(folder, head, block), MAPI_E_NOT_FOUND);
    return std::string(NameIn(block));
}

bool IsWithin(CStoreCore& core, ObjectId folder, ObjectId ancestor) {
    FolderHead head;
    std::string block;
    for (unsigned depth = 0; depth < kDeepestFolder; ++depth) {
        if (folder == ancestor) return true;
        if (!core.Storage().ReadFolder(folder, head, block) || head.parent == folder) return false;
        folder = head.parent;
    }
    return true;
}

ObjectId MakeFolder(CStoreCore& core, ObjectId parent, const std::string& name, const std::string& comment) {
    FolderHead above;
    std::string block;
    Require(core.Storage().ReadFolder(parent, above, block), MAPI_E_OBJECT_DELETED);
    Require(FindChild(core, parent, name) == 0, MAPI_E_COLLISION);
    CPropertyBag bag;
    bag.SetText(PROP_ID(PR_DISPLAY_NAME), name);
    if (!comment.empty()) bag.SetText(PROP_ID(PR_COMMENT), comment);
    CStoredValue containerClass;
    if (CValueBlock(block).Find(PROP_ID(PR_CONTAINER_CLASS), containerClass))
        bag.SetText(PROP_ID(PR_CONTAINER_CLASS), containerClass.Bytes());
    SetNewSearchKey(bag);
    FolderHead head;
    head.id = core.NextFolder();
    head.parent = parent;
    head.created = head.modified = core.NextTime();
    head.change = core.NextChange();
    const auto blocks = bag.Build({});
    core.Storage().WriteFolder(head, blocks.small);
    if (blocks.hasLarge) core.Storage().WriteLarge(head.id, blocks.large);
    core.Publish({fnevObjectCreated, MAPI_FOLDER, head.id, parent, 0, 0});
    return head.id;
}

void MoveFolder(CStoreCore& core, ObjectId folder, ObjectId parent, const std::string& name) {
    FolderHead head;
    CPropertyBag bag;
    std::string block;
    Require(core.Storage().ReadFolder(folder, head, block), MAPI_E_NOT_FOUND);
    bag.Load(std::move(block));
    if (!name.empty()) bag.SetText(PROP_ID(PR_DISPLAY_NAME), name);
    CStoredValue newName;
    bag.Find(PROP_ID(PR_DISPLAY_NAME), newName);
    const ObjectId taken = FindChild(core, parent, newName.Bytes());
    Require(taken == 0 || taken == folder, MAPI_E_COLLISION);
    const ObjectId oldParent = head.parent;
    head.parent = parent;
    head.modified = core.NextTime();
    head.change = core.NextChange();
    core.Storage().WriteFolder(head, bag.Build({}).small);
    core.Publish({fnevObjectMoved, MAPI_FOLDER, folder, parent, folder, oldParent});
}

void DeleteTree(CStoreCore& core, ObjectId folder) {
    DeleteTreeAt(core, folder, 0);
}

void DeleteContents(CStoreCore& core, ObjectId folder, bool associated) {
    const auto messages = MessagesOf(core, folder, associated);
    if (messages.empty()) return;
    core.Storage().DeleteMessages(folder, associated);
    for (const ObjectId message : messages)
        core.Publish({fnevObjectDeleted, MAPI_MESSAGE, message, folder, 0, 0});
}

void CopyContents(CStoreCore& from, ObjectId source, CStoreCore& to, ObjectId target, bool associated) {
    for (const ObjectId message : MessagesOf(from, source, associated))
        CopyMessageRow(from, message, to, target, associated);
}

void CopySubfolders(CStoreCore& from, ObjectId source, CStoreCore& to, ObjectId target) {
    for (const ObjectId child : ChildrenOf(from, source))
        CopyFolderTree(from, child, to, target, NameOfFolder(from, child), true);
}

ObjectId CopyMessageRow(CStoreCore& from, ObjectId message, CStoreCore& to, ObjectId folder,
                        bool associated) {
    MessageHead head;
    std::string block;
    Require(from.Storage().ReadMessage(message, head, block), MAPI_E_NOT_FOUND);
    CMessageState source(from), copy(to);
    source.LoadStored(message, std::move(block), head.recipients != 0, head.attachments != 0);
    copy.LoadSnapshot(*MapSnapshot(from, to, source.Snapshot()));
    head.id = MakeMessageId(folder, associated, to.NextSerial());
    head.change = to.NextChange();
    if (to.Habits().Has(HABIT_COPIES_TOUCH)) head.modified = to.NextTime();
    const auto written = copy.WriteParts(head.id);
    head.hasLarge = written.hasLarge;
    head.size = written.size;
    to.Storage().InsertMessage(head, written.small);
    // An event names its objects by entry IDs of one store.
    to.Publish({fnevObjectCreated, MAPI_MESSAGE, head.id, folder, 0, 0});
    if (&from == &to)
        to.Publish({fnevObjectCopied, MAPI_MESSAGE, head.id, folder, message, FolderOf(message)});
    return head.id;
}

ObjectId MoveMessageRow(CStoreCore& core, ObjectId message, ObjectId folder) {
    MessageHead head;
    Require(core.Storage().ReadMessageHead(message, head), MAPI_E_NOT_FOUND);
    head.id =
        MakeMessageId(folder, IsAssociated(message), core.Habits().SerialOfMoved(message, core.NextSerial()));
    head.change = core.NextChange();
    if (core.Habits().Has(HABIT_COPIES_TOUCH)) head.modified = core.NextTime();
    core.Storage().MoveMessage(message, head);
    core.Publish({fnevObjectMoved, MAPI_MESSAGE, head.id, folder, message, FolderOf(message)});
    return head.id;
}

ObjectId CopyFolderTree(CStoreCore& from, ObjectId folder, CStoreCore& to, ObjectId parent,
                        const std::string& name, bool deep) {
    Require(FindChild(to, parent, name) == 0, MAPI_E_COLLISION);
    return CopyTreeAt(from, folder, to, parent, name, deep, 0);
}
