// Attachments by file name, and moving messages to the wastebasket.
#pragma once
#include <MapiWrapper/MapiWrapper.h>

#include <string>
#include <vector>

// The first attachment whose PR_ATTACH_FILENAME_A, without its directory ("\"), equals `name` regardless
// of ASCII case; opened with MAPI_BEST_ACCESS. Without a match: a new attachment and *created = true with
// `create`, otherwise an empty `attach`. A CMAPIException goes no further; `attach` then keeps what
// it had. `created` may be null and is only ever set to true.
void FindAttachment(const IMessagePtr& message, const std::string& name, IAttachPtr& attach, bool create,
                    bool* created = nullptr);

// Moves messages of `folder` (by entry ID) to the wastebasket of its store, all or as the store does. A store
// without a wastebasket leaves them where they are and reports nothing; a failed move is reported with
// "DeleteMessages", any other fault with the box "Error delete messages". Never throws.
void DeleteMessages(const std::vector<CMapiBinary>& messages, const IMAPIFolderPtr& folder,
                    const CMapiSession& session);
