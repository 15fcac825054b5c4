// The C boundary of the module: every entry of the function list, and the one exported symbol.

#include <cstring>
#include <optional>
#include <utility>

#include "quelmpkcs11/extended_function_list.h"

#include "attribute_reading.h"
#include "counted_login.h"
#include "private_key_access.h"
#include "runtime.h"
#include "secret_buffer.h"
#include "slot_view.h"
#include "template_rules.h"
#include "token_identity.h"

namespace quelm {
namespace {

template <class Call>
CK_RV with_module(Call&& call) {
    return guarded([&] { return Runtime::instance().with_module(call); });
}

template <class Call>
CK_RV with_session(CK_SESSION_HANDLE session, Call&& call) {
    return with_module([&](Module& module) {
        CK_RV rv = CKR_OK;
        auto state = module.sessions.get(module.backend, session, rv);
        if (!state) return rv;
        std::lock_guard guard(state->lock);
        return call(module, *state);
    });
}

// A new operation starts fresh, whatever result an earlier one left waiting.
template <class Call>
CK_RV starting_operation(CK_SESSION_HANDLE session, Call&& call) {
    return with_session(session, [&](Module& module, SessionState& state) {
        state.kept.discard();
        state.pkcs1_signing.reset();
        return call(module.backend);
    });
}

// A call that may change the session's signing operation in the backend.
template <class Call>
CK_RV touching_signature(CK_SESSION_HANDLE session, Call&& call) {
    return with_session(session, [&](Module& module, SessionState& state) {
        state.pkcs1_signing.reset();
        return call(module.backend);
    });
}

// The length of a CKM_RSA_PKCS signature is the modulus length, so a length query needs no
// signature: the backend's operation is ended without one (PKCS#1 v1.5 signing is single-part,
// so C_SignUpdate fails, and a failed C_SignUpdate ends the operation), and only the length is
// kept. A later call with a buffer starts the operation again. Nothing when the length cannot be
// told this way; the caller then signs to find it.
std::optional<CK_RV> answer_signature_length(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                                             const SessionState::Pkcs1Signing& signing,
                                             CK_BYTE_PTR data, CK_ULONG data_len, KeptOutput& kept,
                                             CK_ULONG_PTR signature_len) {
    constexpr CK_ULONG kPkcs1Overhead = 11;
    const CK_OBJECT_HANDLE key = signing.key;
    const CK_ULONG length = signing.modulus_length;
    if (length <= kPkcs1Overhead) return std::nullopt;
    if ((!data && data_len) || data_len > length - kPkcs1Overhead) return std::nullopt;

    CK_BYTE part = 0;
    if (backend.C_SignUpdate(session, &part, 1) == CKR_OK) {
        // A backend that takes the mechanism in parts: end it the long way.
        SecretBuffer ignored(length);
        CK_ULONG ignored_len = length;
        if (backend.C_SignFinal(session, ignored.data(), &ignored_len) == CKR_BUFFER_TOO_SMALL) {
            SecretBuffer larger(ignored_len);
            backend.C_SignFinal(session, larger.data(), &ignored_len);
        }
    }
    kept.keep_length(OutputOperation::kSign, data, data_len, length, [&backend, session, key] {
        if (const CK_RV rv = require_login_for_private_key(backend, session, key); rv != CKR_OK) {
            return rv;
        }
        CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
        return backend.C_SignInit(session, &mechanism, key);
    });
    *signature_len = length;
    return CKR_OK;
}

CK_RV use_private_key(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key,
                      CK_C_SignInit CK_FUNCTION_LIST::*init, CK_MECHANISM_PTR mechanism) {
    return starting_operation(session, [&](CK_FUNCTION_LIST& backend) {
        if (const CK_RV rv = require_login_for_private_key(backend, session, key); rv != CKR_OK) {
            return rv;
        }
        return (backend.*init)(session, mechanism, key);
    });
}

CK_RV Initialize(CK_VOID_PTR init_args) {
    return guarded([&] { return Runtime::instance().initialize(init_args); });
}

CK_RV Finalize(CK_VOID_PTR reserved) {
    return guarded([&] { return Runtime::instance().finalize(reserved); });
}

CK_RV GetInfo(CK_INFO_PTR info) {
    return with_module([&](Module& module) {
        if (!info) return CKR_ARGUMENTS_BAD;
        const CK_RV rv = module.backend.C_GetInfo(info);
        if (rv != CKR_OK) return rv;
        info->cryptokiVersion = {2, 40};
        write_padded(info->manufacturerID, sizeof info->manufacturerID, "Velmora Ltd.");
        write_padded(info->libraryDescription, sizeof info->libraryDescription,
                     "quelmpkcs11 token middleware");
        info->libraryVersion = {QUELMPKCS11_VERSION_MAJOR, QUELMPKCS11_VERSION_MINOR};
        return CKR_OK;
    });
}

CK_RV GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list);

CK_RV GetSlotList(CK_BBOOL token_present, CK_SLOT_ID_PTR slots, CK_ULONG_PTR count) {
    return with_module(
        [&](Module& module) { return get_slot_list(module, token_present, slots, count); });
}

CK_RV GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO_PTR info) {
    return with_module([&](Module& module) {
        if (!info) return CKR_ARGUMENTS_BAD;
        return get_slot_info(module, slot, info);
    });
}

CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO_PTR info) {
    return with_module([&](Module& module) {
        if (!info) return CKR_ARGUMENTS_BAD;
        const CK_RV rv = module.token_info(slot, info);
        if (rv == CKR_OK) apply_counter_flags(module, *info);
        return rv;
    });
}

CK_RV GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE_PTR mechanisms, CK_ULONG_PTR count) {
    return with_module(
        [&](Module& module) { return module.backend.C_GetMechanismList(slot, mechanisms, count); });
}

CK_RV GetMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR info) {
    return with_module(
        [&](Module& module) { return module.backend.C_GetMechanismInfo(slot, type, info); });
}

CK_RV InitToken(CK_SLOT_ID slot, CK_UTF8CHAR_PTR so_pin, CK_ULONG so_pin_len,
                CK_UTF8CHAR_PTR label) {
    return with_module([&](Module& module) {
        const CK_RV rv = module.backend.C_InitToken(slot, so_pin, so_pin_len, label);
        return rv == CKR_OK ? reset_counter(module, slot) : rv;
    });
}

// The security officer's way to unlock a user PIN: setting it anew clears the wrong tries.
CK_RV InitPIN(CK_SESSION_HANDLE session, CK_UTF8CHAR_PTR pin, CK_ULONG pin_len) {
    return with_session(session, [&](Module& module, SessionState& state) {
        const CK_RV rv = module.backend.C_InitPIN(session, pin, pin_len);
        return rv == CKR_OK ? reset_counter(module, state.slot) : rv;
    });
}

CK_RV SetPIN(CK_SESSION_HANDLE session, CK_UTF8CHAR_PTR old_pin, CK_ULONG old_len,
             CK_UTF8CHAR_PTR new_pin, CK_ULONG new_len) {
    return with_module([&](Module& module) {
        return counted_set_pin(module, session, old_pin, old_len, new_pin, new_len);
    });
}

CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, CK_VOID_PTR application, CK_NOTIFY notify,
                  CK_SESSION_HANDLE_PTR session) {
    return with_module([&](Module& module) {
        const CK_RV rv = module.backend.C_OpenSession(slot, flags, application, notify, session);
        if (rv == CKR_OK) module.sessions.add(*session, slot);
        return rv;
    });
}

CK_RV CloseSession(CK_SESSION_HANDLE session) {
    return with_module([&](Module& module) {
        const CK_RV rv = module.backend.C_CloseSession(session);
        if (rv == CKR_OK || rv == CKR_SESSION_HANDLE_INVALID) module.sessions.remove(session);
        return rv;
    });
}

CK_RV CloseAllSessions(CK_SLOT_ID slot) {
    return with_module([&](Module& module) {
        const CK_RV rv = module.backend.C_CloseAllSessions(slot);
        if (rv == CKR_OK) module.sessions.remove_slot(slot);
        return rv;
    });
}

CK_RV GetSessionInfo(CK_SESSION_HANDLE session, CK_SESSION_INFO_PTR info) {
    return with_module(
        [&](Module& module) { return module.backend.C_GetSessionInfo(session, info); });
}

CK_RV GetOperationState(CK_SESSION_HANDLE session, CK_BYTE_PTR state, CK_ULONG_PTR state_len) {
    return with_module([&](Module& module) {
        return module.backend.C_GetOperationState(session, state, state_len);
    });
}

CK_RV SetOperationState(CK_SESSION_HANDLE session, CK_BYTE_PTR state, CK_ULONG state_len,
                        CK_OBJECT_HANDLE encryption_key, CK_OBJECT_HANDLE authentication_key) {
    return touching_signature(session, [&](CK_FUNCTION_LIST& backend) {
        return backend.C_SetOperationState(session, state, state_len, encryption_key,
                                           authentication_key);
    });
}

CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin, CK_ULONG pin_len) {
    return with_module([&](Module& module) {
        return counted_login(module, session, user, pin, pin_len, LoginEntry::kStandard);
    });
}

CK_RV ExtendedLogin(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR_PTR pin,
                    CK_ULONG pin_len) {
    bool tries_left = false;
    const CK_RV rv = with_module([&](Module& module) {
        return extended_login(module, session, user, pin, pin_len, &tries_left);
    });
    return extended_login_result(rv, tries_left);
}

CK_RV Logout(CK_SESSION_HANDLE session) {
    return with_module([&](Module& module) { return module.backend.C_Logout(session); });
}

CK_RV CreateObject(CK_SESSION_HANDLE session, CK_ATTRIBUTE_PTR attributes, CK_ULONG count,
                   CK_OBJECT_HANDLE_PTR object) {
    return with_module([&](Module& module) {
        if ((!attributes && count) || !object) return CKR_ARGUMENTS_BAD;
        AttributeTemplate prepared(attributes, count);
        // The backend would have asked for a login to store a private key; now that it is
        // stored as a public object, the middleware asks instead.
        if (prepared.ulong_value(CKA_CLASS) == CKO_PRIVATE_KEY &&
            !user_logged_in(module.backend, session)) {
            return CKR_USER_NOT_LOGGED_IN;
        }
        if (const CK_RV rv = prepare_new_object(prepared); rv != CKR_OK) return rv;
        return module.backend.C_CreateObject(session, prepared.data(), prepared.size(), object);
    });
}

CK_RV CopyObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_PTR attributes,
                 CK_ULONG count, CK_OBJECT_HANDLE_PTR copy) {
    return with_module([&](Module& module) {
        return module.backend.C_CopyObject(session, object, attributes, count, copy);
    });
}

CK_RV DestroyObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
    return with_module(
        [&](Module& module) { return module.backend.C_DestroyObject(session, object); });
}

CK_RV GetObjectSize(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ULONG_PTR size) {
    return with_module(
        [&](Module& module) { return module.backend.C_GetObjectSize(session, object, size); });
}

CK_RV GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                        CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
    return with_module([&](Module& module) {
        return get_attribute_value(module.backend, session, object, attributes, count);
    });
}

CK_RV SetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                        CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
    return with_module([&](Module& module) {
        return module.backend.C_SetAttributeValue(session, object, attributes, count);
    });
}

CK_RV FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
    return with_session(session, [&](Module& module, SessionState& state) {
        if (state.search.active()) return CKR_OPERATION_ACTIVE;
        CK_FUNCTION_LIST& backend = module.backend;
        CK_RV rv = backend.C_FindObjectsInit(session, attributes, count);
        if (rv != CKR_OK) return rv;
        std::vector<CK_OBJECT_HANDLE> matches;
        CK_OBJECT_HANDLE chunk[64];
        for (;;) {
            CK_ULONG found = 0;
            rv = backend.C_FindObjects(session, chunk, std::size(chunk), &found);
            if (rv != CKR_OK || found == 0) break;
            matches.insert(matches.end(), chunk, chunk + found);
        }
        backend.C_FindObjectsFinal(session);
        if (rv != CKR_OK) return rv;
        state.search.start(std::move(matches));
        return CKR_OK;
    });
}

// A NULL array asks how many matches are still to come.
CK_RV FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE_PTR objects, CK_ULONG max,
                  CK_ULONG_PTR count) {
    return with_session(session, [&](Module&, SessionState& state) {
        if (!count) return CKR_ARGUMENTS_BAD;
        if (!state.search.active()) return CKR_OPERATION_NOT_INITIALIZED;
        *count = objects ? state.search.take(objects, max) : state.search.remaining();
        return CKR_OK;
    });
}

CK_RV FindObjectsFinal(CK_SESSION_HANDLE session) {
    return with_session(session, [&](Module&, SessionState& state) {
        if (!state.search.active()) return CKR_OPERATION_NOT_INITIALIZED;
        state.search.finish();
        return CKR_OK;
    });
}

CK_RV EncryptInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    return starting_operation(session, [&](CK_FUNCTION_LIST& backend) {
        return backend.C_EncryptInit(session, mechanism, key);
    });
}

CK_RV Encrypt(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG data_len, CK_BYTE_PTR out,
              CK_ULONG_PTR out_len) {
    return with_session(session, [&](Module& module, SessionState& state) {
        return state.kept.deliver(OutputOperation::kEncrypt, data, data_len, out, out_len,
                                  [&](CK_BYTE_PTR buffer, CK_ULONG_PTR length) {
                                      return module.backend.C_Encrypt(session, data, data_len,
                                                                      buffer, length);
                                  });
    });
}

CK_RV EncryptUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR part, CK_ULONG part_len, CK_BYTE_PTR out,
                    CK_ULONG_PTR out_len) {
    return with_module([&](Module& module) {
        return module.backend.C_EncryptUpdate(session, part, part_len, out, out_len);
    });
}

CK_RV EncryptFinal(CK_SESSION_HANDLE session, CK_BYTE_PTR out, CK_ULONG_PTR out_len) {
    return with_session(session, [&](Module& module, SessionState& state) {
        return state.kept.deliver(OutputOperation::kEncryptFinal, nullptr, 0, out, out_len,
                                  [&](CK_BYTE_PTR buffer, CK_ULONG_PTR length) {
                                      return module.backend.C_EncryptFinal(session, buffer, length);
                                  });
    });
}

CK_RV DecryptInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    return use_private_key(session, key, &CK_FUNCTION_LIST::C_DecryptInit, mechanism);
}

CK_RV Decrypt(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG data_len, CK_BYTE_PTR out,
              CK_ULONG_PTR out_len) {
    return with_session(session, [&](Module& module, SessionState& state) {
        return state.kept.deliver(OutputOperation::kDecrypt, data, data_len, out, out_len,
                                  [&](CK_BYTE_PTR buffer, CK_ULONG_PTR length) {
                                      return module.backend.C_Decrypt(session, data, data_len,
                                                                      buffer, length);
                                  });
    });
}

CK_RV DecryptUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR part, CK_ULONG part_len, CK_BYTE_PTR out,
                    CK_ULONG_PTR out_len) {
    return with_module([&](Module& module) {
        return module.backend.C_DecryptUpdate(session, part, part_len, out, out_len);
    });
}

CK_RV DecryptFinal(CK_SESSION_HANDLE session, CK_BYTE_PTR out, CK_ULONG_PTR out_len) {
    return with_session(session, [&](Module& module, SessionState& state) {
        return state.kept.deliver(OutputOperation::kDecryptFinal, nullptr, 0, out, out_len,
                                  [&](CK_BYTE_PTR buffer, CK_ULONG_PTR length) {
                                      return module.backend.C_DecryptFinal(session, buffer, length);
                                  });
    });
}

CK_RV DigestInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism) {
    return starting_operation(session, [&](CK_FUNCTION_LIST& backend) {
        return backend.C_DigestInit(session, mechanism);
    });
}

CK_RV Digest(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG data_len, CK_BYTE_PTR digest,
             CK_ULONG_PTR digest_len) {
    return with_module([&](Module& module) {
        return module.backend.C_Digest(session, data, data_len, digest, digest_len);
    });
}

CK_RV DigestUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR part, CK_ULONG part_len) {
    return with_module(
        [&](Module& module) { return module.backend.C_DigestUpdate(session, part, part_len); });
}

CK_RV DigestKey(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key) {
    return with_module([&](Module& module) { return module.backend.C_DigestKey(session, key); });
}

CK_RV DigestFinal(CK_SESSION_HANDLE session, CK_BYTE_PTR digest, CK_ULONG_PTR digest_len) {
    return with_module(
        [&](Module& module) { return module.backend.C_DigestFinal(session, digest, digest_len); });
}

CK_RV SignInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    return with_session(session, [&](Module& module, SessionState& state) {
        state.kept.discard();
        state.pkcs1_signing.reset();
        CK_FUNCTION_LIST& backend = module.backend;
        // The class decides the login rule; the modulus length, read in the same call, answers a
        // length query of the signature.
        const KeyFacts facts = key_facts(backend, session, key);
        if (const CK_RV rv = require_login_for_private_key(backend, session, facts.object_class);
            rv != CKR_OK) {
            return rv;
        }
        const CK_RV rv = backend.C_SignInit(session, mechanism, key);
        if (rv == CKR_OK && mechanism && mechanism->mechanism == CKM_RSA_PKCS) {
            state.pkcs1_signing = SessionState::Pkcs1Signing{key, facts.modulus_length};
        }
        return rv;
    });
}

CK_RV Sign(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG data_len, CK_BYTE_PTR signature,
           CK_ULONG_PTR signature_len) {
    return with_session(session, [&](Module& module, SessionState& state) {
        const auto signing = std::exchange(state.pkcs1_signing, {});
        if (signing && !signature && signature_len && !state.kept.holding()) {
            if (const auto rv = answer_signature_length(module.backend, session, *signing, data,
                                                        data_len, state.kept, signature_len)) {
                return *rv;
            }
        }
        return state.kept.deliver(OutputOperation::kSign, data, data_len, signature, signature_len,
                                  [&](CK_BYTE_PTR buffer, CK_ULONG_PTR length) {
                                      return module.backend.C_Sign(session, data, data_len, buffer,
                                                                   length);
                                  });
    });
}

CK_RV SignUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR part, CK_ULONG part_len) {
    return touching_signature(session, [&](CK_FUNCTION_LIST& backend) {
        return backend.C_SignUpdate(session, part, part_len);
    });
}

CK_RV SignFinal(CK_SESSION_HANDLE session, CK_BYTE_PTR signature, CK_ULONG_PTR signature_len) {
    return with_session(session, [&](Module& module, SessionState& state) {
        state.pkcs1_signing.reset();
        return state.kept.deliver(OutputOperation::kSignFinal, nullptr, 0, signature, signature_len,
                                  [&](CK_BYTE_PTR buffer, CK_ULONG_PTR length) {
                                      return module.backend.C_SignFinal(session, buffer, length);
                                  });
    });
}

CK_RV SignRecoverInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    return use_private_key(session, key, &CK_FUNCTION_LIST::C_SignRecoverInit, mechanism);
}

CK_RV SignRecover(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG data_len,
                  CK_BYTE_PTR signature, CK_ULONG_PTR signature_len) {
    return touching_signature(session, [&](CK_FUNCTION_LIST& backend) {
        return backend.C_SignRecover(session, data, data_len, signature, signature_len);
    });
}

CK_RV VerifyInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE key) {
    return starting_operation(session, [&](CK_FUNCTION_LIST& backend) {
        return backend.C_VerifyInit(session, mechanism, key);
    });
}

CK_RV Verify(CK_SESSION_HANDLE session, CK_BYTE_PTR data, CK_ULONG data_len, CK_BYTE_PTR signature,
             CK_ULONG signature_len) {
    return with_module([&](Module& module) {
        return module.backend.C_Verify(session, data, data_len, signature, signature_len);
    });
}

CK_RV VerifyUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR part, CK_ULONG part_len) {
    return with_module(
        [&](Module& module) { return module.backend.C_VerifyUpdate(session, part, part_len); });
}

CK_RV VerifyFinal(CK_SESSION_HANDLE session, CK_BYTE_PTR signature, CK_ULONG signature_len) {
    return with_module([&](Module& module) {
        return module.backend.C_VerifyFinal(session, signature, signature_len);
    });
}

CK_RV VerifyRecoverInit(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism,
                        CK_OBJECT_HANDLE key) {
    return starting_operation(session, [&](CK_FUNCTION_LIST& backend) {
        return backend.C_VerifyRecoverInit(session, mechanism, key);
    });
}

CK_RV VerifyRecover(CK_SESSION_HANDLE session, CK_BYTE_PTR signature, CK_ULONG signature_len,
                    CK_BYTE_PTR data, CK_ULONG_PTR data_len) {
    return with_module([&](Module& module) {
        return module.backend.C_VerifyRecover(session, signature, signature_len, data, data_len);
    });
}

CK_RV DigestEncryptUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR part, CK_ULONG part_len,
                          CK_BYTE_PTR out, CK_ULONG_PTR out_len) {
    return with_module([&](Module& module) {
        return module.backend.C_DigestEncryptUpdate(session, part, part_len, out, out_len);
    });
}

CK_RV DecryptDigestUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR part, CK_ULONG part_len,
                          CK_BYTE_PTR out, CK_ULONG_PTR out_len) {
    return with_module([&](Module& module) {
        return module.backend.C_DecryptDigestUpdate(session, part, part_len, out, out_len);
    });
}

CK_RV SignEncryptUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR part, CK_ULONG part_len,
                        CK_BYTE_PTR out, CK_ULONG_PTR out_len) {
    return touching_signature(session, [&](CK_FUNCTION_LIST& backend) {
        return backend.C_SignEncryptUpdate(session, part, part_len, out, out_len);
    });
}

CK_RV DecryptVerifyUpdate(CK_SESSION_HANDLE session, CK_BYTE_PTR part, CK_ULONG part_len,
                          CK_BYTE_PTR out, CK_ULONG_PTR out_len) {
    return with_module([&](Module& module) {
        return module.backend.C_DecryptVerifyUpdate(session, part, part_len, out, out_len);
    });
}

CK_RV GenerateKey(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism,
                  CK_ATTRIBUTE_PTR attributes, CK_ULONG count, CK_OBJECT_HANDLE_PTR key) {
    return with_module([&](Module& module) {
        return module.backend.C_GenerateKey(session, mechanism, attributes, count, key);
    });
}

CK_RV GenerateKeyPair(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism,
                      CK_ATTRIBUTE_PTR public_attributes, CK_ULONG public_count,
                      CK_ATTRIBUTE_PTR private_attributes, CK_ULONG private_count,
                      CK_OBJECT_HANDLE_PTR public_key, CK_OBJECT_HANDLE_PTR private_key) {
    return with_module([&](Module& module) {
        if (!mechanism || (!public_attributes && public_count) ||
            (!private_attributes && private_count) || !public_key || !private_key) {
            return CKR_ARGUMENTS_BAD;
        }
        if (!user_logged_in(module.backend, session)) return CKR_USER_NOT_LOGGED_IN;
        AttributeTemplate public_template(public_attributes, public_count);
        AttributeTemplate private_template(private_attributes, private_count);
        if (const CK_RV rv = prepare_key_pair(*mechanism, public_template, private_template);
            rv != CKR_OK) {
            return rv;
        }
        return module.backend.C_GenerateKeyPair(session, mechanism, public_template.data(),
                                                public_template.size(), private_template.data(),
                                                private_template.size(), public_key, private_key);
    });
}

CK_RV WrapKey(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE wrapping_key,
              CK_OBJECT_HANDLE key, CK_BYTE_PTR wrapped, CK_ULONG_PTR wrapped_len) {
    return with_module([&](Module& module) {
        if (const CK_RV rv = require_login_for_private_key(module.backend, session, key);
            rv != CKR_OK) {
            return rv;
        }
        return module.backend.C_WrapKey(session, mechanism, wrapping_key, key, wrapped,
                                        wrapped_len);
    });
}

CK_RV UnwrapKey(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism,
                CK_OBJECT_HANDLE unwrapping_key, CK_BYTE_PTR wrapped, CK_ULONG wrapped_len,
                CK_ATTRIBUTE_PTR attributes, CK_ULONG count, CK_OBJECT_HANDLE_PTR key) {
    return with_module([&](Module& module) {
        if (!attributes && count) return CKR_ARGUMENTS_BAD;
        if (const CK_RV rv = require_login_for_private_key(module.backend, session, unwrapping_key);
            rv != CKR_OK) {
            return rv;
        }
        AttributeTemplate prepared(attributes, count);
        prepare_unwrapped_key(prepared);
        return module.backend.C_UnwrapKey(session, mechanism, unwrapping_key, wrapped, wrapped_len,
                                          prepared.data(), prepared.size(), key);
    });
}

CK_RV DeriveKey(CK_SESSION_HANDLE session, CK_MECHANISM_PTR mechanism, CK_OBJECT_HANDLE base_key,
                CK_ATTRIBUTE_PTR attributes, CK_ULONG count, CK_OBJECT_HANDLE_PTR key) {
    return with_module([&](Module& module) {
        if (const CK_RV rv = require_login_for_private_key(module.backend, session, base_key);
            rv != CKR_OK) {
            return rv;
        }
        return module.backend.C_DeriveKey(session, mechanism, base_key, attributes, count, key);
    });
}

CK_RV SeedRandom(CK_SESSION_HANDLE session, CK_BYTE_PTR seed, CK_ULONG seed_len) {
    return with_module(
        [&](Module& module) { return module.backend.C_SeedRandom(session, seed, seed_len); });
}

CK_RV GenerateRandom(CK_SESSION_HANDLE session, CK_BYTE_PTR out, CK_ULONG out_len) {
    return with_module(
        [&](Module& module) { return module.backend.C_GenerateRandom(session, out, out_len); });
}

CK_RV GetFunctionStatus(CK_SESSION_HANDLE session) {
    return with_module([&](Module& module) { return module.backend.C_GetFunctionStatus(session); });
}

CK_RV CancelFunction(CK_SESSION_HANDLE session) {
    return with_module([&](Module& module) { return module.backend.C_CancelFunction(session); });
}

// The wait may block for as long as no card moves, so it must not hold the life-cycle lock that
// C_Finalize needs in order to end it.
CK_RV WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR slot, CK_VOID_PTR reserved) {
    CK_C_WaitForSlotEvent wait = nullptr;
    const CK_RV rv = with_module([&](Module& module) {
        wait = module.backend.C_WaitForSlotEvent;
        return CKR_OK;
    });
    if (rv != CKR_OK) return rv;
    return guarded([&] { return wait(flags, slot, reserved); });
}

const QUELM_FUNCTION_LIST kFunctionList = {
    {
        {2, 40},
        Initialize,
        Finalize,
        GetInfo,
        GetFunctionList,
        GetSlotList,
        GetSlotInfo,
        GetTokenInfo,
        GetMechanismList,
        GetMechanismInfo,
        InitToken,
        InitPIN,
        SetPIN,
        OpenSession,
        CloseSession,
        CloseAllSessions,
        GetSessionInfo,
        GetOperationState,
        SetOperationState,
        Login,
        Logout,
        CreateObject,
        CopyObject,
        DestroyObject,
        GetObjectSize,
        GetAttributeValue,
        SetAttributeValue,
        FindObjectsInit,
        FindObjects,
        FindObjectsFinal,
        EncryptInit,
        Encrypt,
        EncryptUpdate,
        EncryptFinal,
        DecryptInit,
        Decrypt,
        DecryptUpdate,
        DecryptFinal,
        DigestInit,
        Digest,
        DigestUpdate,
        DigestKey,
        DigestFinal,
        SignInit,
        Sign,
        SignUpdate,
        SignFinal,
        SignRecoverInit,
        SignRecover,
        VerifyInit,
        Verify,
        VerifyUpdate,
        VerifyFinal,
        VerifyRecoverInit,
        VerifyRecover,
        DigestEncryptUpdate,
        DecryptDigestUpdate,
        SignEncryptUpdate,
        DecryptVerifyUpdate,
        GenerateKey,
        GenerateKeyPair,
        WrapKey,
        UnwrapKey,
        DeriveKey,
        SeedRandom,
        GenerateRandom,
        GetFunctionStatus,
        CancelFunction,
        WaitForSlotEvent,
    },
    {nullptr, nullptr, nullptr, nullptr},
    ExtendedLogin,
};

// The backend is not needed to hand out the list, so this works even when it cannot be loaded.
CK_RV GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
    if (!list) return CKR_ARGUMENTS_BAD;
    // Callers see the standard list at the start; the extended entries follow it in memory.
    *list = const_cast<CK_FUNCTION_LIST_PTR>(&kFunctionList.standard);
    return CKR_OK;
}

}  // namespace
}  // namespace quelm

extern "C" __attribute__((visibility("default"))) CK_RV C_GetFunctionList(
    CK_FUNCTION_LIST_PTR_PTR list) {
    return quelm::GetFunctionList(list);
}
