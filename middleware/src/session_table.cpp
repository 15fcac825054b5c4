#include "session_table.h"

namespace quelm {

void SessionTable::add(CK_SESSION_HANDLE session, CK_SLOT_ID slot) {
    auto state = std::make_shared<SessionState>(slot);
    std::lock_guard guard(lock_);
    sessions_[session] = std::move(state);
}

std::shared_ptr<SessionState> SessionTable::find(CK_SESSION_HANDLE session) const {
    std::lock_guard guard(lock_);
    const auto found = sessions_.find(session);
    return found == sessions_.end() ? nullptr : found->second;
}

std::shared_ptr<SessionState> SessionTable::get(CK_FUNCTION_LIST& backend,
                                                CK_SESSION_HANDLE session, CK_RV& rv) {
    rv = CKR_OK;
    if (auto state = find(session)) return state;
    CK_SESSION_INFO info{};
    rv = backend.C_GetSessionInfo(session, &info);
    if (rv != CKR_OK) return nullptr;
    auto state = std::make_shared<SessionState>(info.slotID);
    std::lock_guard guard(lock_);
    return sessions_.emplace(session, std::move(state)).first->second;
}

void SessionTable::remove(CK_SESSION_HANDLE session) {
    std::lock_guard guard(lock_);
    sessions_.erase(session);
}

void SessionTable::remove_slot(CK_SLOT_ID slot) {
    std::lock_guard guard(lock_);
    std::erase_if(sessions_, [slot](const auto& entry) { return entry.second->slot == slot; });
}

}  // namespace quelm
