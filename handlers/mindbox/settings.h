#pragma once

#include "shared/core/setting.h"

/// Section `Mindbox`: read by the constructor of each client. Only the name of the transaction's id
/// is read for each reply.
namespace settings::mindbox {

inline constexpr Setting<QString> url{
    .key = u"Mindbox:url",
    .defaultValue = u"https://api.mindbox.ru/v3/operations/sync",
    .about = u"Address of the loyalty platform, for all its operations.",
};
inline constexpr Setting<QString> endpoint{
    .key = u"Mindbox:endpoint",
    .about = u"Name of the till's endpoint at the platform.",
};
inline constexpr Setting<QString> secretKey{
    .key = u"Mindbox:secretKey",
    .about = u"Secret key of the endpoint.",
};
inline constexpr Setting<QString> pointOfContact{
    .key = u"Mindbox:pointOfContact",
    .about = u"Point of contact, sent in every request.",
};
inline constexpr Setting<std::chrono::seconds> timeout{
    .key = u"Mindbox:timeout",
    .defaultValue = 5,
    .about = u"Timeout of a request.",
};
inline constexpr Setting<bool> useIdempotencyKey{
    .key = u"Mindbox:useIdempotencyKey",
    .about = u"Whether an order is sent with its external id, by which the platform recognizes a "
             u"repetition.",
};
inline constexpr Setting<QString> responseTransactionIdName{
    .key = u"Mindbox:responseTransactionIdName",
    .defaultValue = u"offlineTransactionIdTallo",
    .about = u"Key under which the platform returns the id of a new transaction.",
};

/// The name of an operation at the platform.
constexpr Setting<QString> operation(QStringView key, QStringView defaultName)
{
    return {
        .key = key,
        .defaultValue = defaultName,
        .about = u"Name of the operation at the platform.",
    };
}

inline constexpr auto sendMobilePhoneAuthorizationCodeOperation =
    operation(u"Mindbox:sendMobilePhoneAuthorizationCodeOperation",
              u"Offline.SendMobilePhoneAuthorizationCodeOperation");
inline constexpr auto resendMobilePhoneAuthorizationCodeOperation =
    operation(u"Mindbox:resendMobilePhoneAuthorizationCodeOperation",
              u"Offline.ResendMobilePhoneAuthorizationCodeOperation");
inline constexpr auto registerCustomerOperation =
    operation(u"Mindbox:registerCustomerOperation", u"Offline.RegisterCustomerKliograk");
inline constexpr auto returnOperation = operation(u"Mindbox:returnOperation", u"Offline.Return");
inline constexpr auto activateDiscountCardOperation =
    operation(u"Mindbox:activateDiscountCardOperation", u"Offline.ActivateDiscountCard");
inline constexpr auto activateVirtualDiscountCardOperation = operation(
    u"Mindbox:activateVirtualDiscountCardOperation", u"Offline.ActivateVirtualDiscountCard");
inline constexpr auto anonymousPreorderOperation =
    operation(u"Mindbox:anonymousPreorderOperation", u"Offline.AnonymousPreorder");
inline constexpr auto authorizedPreorderOperation =
    operation(u"Mindbox:authorizedPreorderOperation", u"Offline.AuthorizedPreorder");
inline constexpr auto beginAnonymousOrderTransactionOperation = operation(
    u"Mindbox:beginAnonymousOrderTransactionOperation", u"Offline.BeginAnonymousOrderTransaction");
inline constexpr auto beginAuthorizedOrderTransactionOperation =
    operation(u"Mindbox:beginAuthorizedOrderTransactionOperation",
              u"Offline.BeginAuthorizedOrderTransaction");
inline constexpr auto beginUnauthorizedOrderTransactionOperation =
    operation(u"Mindbox:beginUnauthorizedOrderTransactionOperation",
              u"Offline.BeginUnauthorizedOrderTransaction");
inline constexpr auto checkCustomerOperation =
    operation(u"Mindbox:checkCustomerOperation", u"Offline.CheckCustomer");
inline constexpr auto checkMobilePhoneAuthorizationCodeOperation =
    operation(u"Mindbox:checkMobilePhoneAuthorizationCodeOperation",
              u"Offline.CheckMobilePhoneAuthorizationCode");
inline constexpr auto commitOrderTransactionOperation =
    operation(u"Mindbox:commitOrderTransactionOperation", u"Offline.CommitOrderTransaction");
inline constexpr auto confirmMobilePhoneOperation =
    operation(u"Mindbox:confirmMobilePhoneOperation", u"Offline.ConfirmMobilePhone");
inline constexpr auto editCustomerOperation =
    operation(u"Mindbox:editCustomerOperation", u"Offline.EditCustomer");
inline constexpr auto replaceCardsOperation =
    operation(u"Mindbox:replaceCardsOperation", u"Offline.ReplaceCards");
inline constexpr auto rollbackOrderTransactionOperation =
    operation(u"Mindbox:rollbackOrderTransactionOperation", u"Offline.RollbackOrderTransaction");
inline constexpr auto saveOfflineOrderOperation =
    operation(u"Mindbox:saveOfflineOrderOperation", u"Offline.SaveOfflineOrder");
inline constexpr auto unauthorizedPreorderOperation =
    operation(u"Mindbox:unauthorizedPreorderOperation", u"Offline.UnauthorizedPreorder");

} // namespace settings::mindbox
