#include "foundation_ext/QVTransforms.h"

#include "foundation_ext/QVStringTools.h"
#include "platform/foundation/values/Conversions.h"
#include "platform/security/transforms/AES128.h"
#include "platform/security/transforms/DigestTransform.h"
#include "platform/security/transforms/VerifyTransform.h"
#include "platform/system/ClassRegistry.h"

namespace qv {

namespace {

// The value, or none and the error where it is wanted.
std::optional<Value> valueOrError(const tl::expected<Value, Error>& outcome, Error* error) {
    if (outcome) {
        return *outcome;
    }
    if (error != nullptr) {
        *error = outcome.error();
    }
    return std::nullopt;
}

std::optional<std::string> bytesOf(const std::optional<Value>& data) {
    return data ? std::optional(std::string(data->asData())) : std::nullopt;
}

std::optional<std::string> keyOfPassword(std::optional<std::string_view> password) {
    return password ? QVStringTools::md5DigestData(*password) : std::nullopt;
}

} // namespace

std::optional<Value> QVTransforms::performTransform(std::string_view receiver,
                                                    const Transform* transform, Error* error) {
    if (error != nullptr) {
        *error = Error();
    }
    return transform == nullptr ? std::nullopt : valueOrError(transform->execute(receiver), error);
}

std::optional<std::string> QVTransforms::computeDigestOfType(std::string_view receiver,
                                                             DigestType digestType, Error* error) {
    const DigestTransform transform(digestType);
    return bytesOf(performTransform(receiver, &transform, error));
}

std::optional<std::string> QVTransforms::computeDigestStringOfType(std::string_view receiver,
                                                                   DigestType digestType,
                                                                   Error* error) {
    return QVStringTools::stringWithHexValuesForData(
        computeDigestOfType(receiver, digestType, error));
}

std::optional<std::string> QVTransforms::computeDigestStringOfFile(const std::string& path,
                                                                   DigestType digestType,
                                                                   Error* error) {
    if (error != nullptr) {
        *error = Error();
    }
    const DigestTransform transform(digestType);
    return QVStringTools::stringWithHexValuesForData(
        bytesOf(valueOrError(transform.executeOnFile(path), error)));
}

std::optional<std::string> QVTransforms::md5Digest(std::string_view receiver) {
    return computeDigestStringOfType(receiver, kSecDigestMD5, nullptr);
}

std::optional<std::string> QVTransforms::sha1Digest(std::string_view receiver) {
    return computeDigestStringOfType(receiver, kSecDigestSHA1, nullptr);
}

std::optional<std::string> QVTransforms::md5DigestData(std::string_view receiver) {
    return computeDigestOfType(receiver, kSecDigestMD5, nullptr);
}

std::optional<std::string> QVTransforms::sha1DigestData(std::string_view receiver) {
    return computeDigestOfType(receiver, kSecDigestSHA1, nullptr);
}

bool QVTransforms::verifySignature(std::string_view receiver,
                                   std::optional<std::string_view> signature,
                                   std::optional<std::string_view> publicKeyCertData,
                                   Error* retError, bool* verificationResult) {
    if (verificationResult != nullptr) {
        *verificationResult = false;
    }
    if (!signature || !publicKeyCertData) {
        return false;
    }
    const VerifyTransform transform(*signature, *publicKeyCertData);
    const auto verdict = valueOrError(transform.execute(receiver), retError);
    if (verdict && verificationResult != nullptr) {
        *verificationResult = integerValue(&*verdict) != 0;
    }
    return verdict.has_value();
}

std::optional<std::string> QVTransforms::_xcryptAES128With16ByteKey(
    std::string_view receiver, std::optional<std::string_view> key, std::uint32_t operation) {
    if (!key || operation > static_cast<std::uint32_t>(CipherOperation::decrypt)) {
        return std::nullopt;
    }
    return cryptAES128(static_cast<CipherOperation>(operation), receiver, *key);
}

std::optional<std::string>
QVTransforms::encryptAES128With16ByteKey(std::string_view receiver,
                                         std::optional<std::string_view> key) {
    return _xcryptAES128With16ByteKey(receiver, key, 0);
}

std::optional<std::string>
QVTransforms::decryptAES128With16ByteKey(std::string_view receiver,
                                         std::optional<std::string_view> key) {
    return _xcryptAES128With16ByteKey(receiver, key, 1);
}

std::optional<std::string>
QVTransforms::encryptAES128WithPassword(std::string_view receiver,
                                        std::optional<std::string_view> password) {
    return encryptAES128With16ByteKey(receiver, keyOfPassword(password));
}

std::optional<std::string>
QVTransforms::decryptAES128WithPassword(std::string_view receiver,
                                        std::optional<std::string_view> password) {
    return decryptAES128With16ByteKey(receiver, keyOfPassword(password));
}

QV_REGISTER_CATEGORY(
    NSData, NSObject, QVTransforms, QV_RECEIVER_METHOD(performTransform, "performTransform:error:"),
    QV_RECEIVER_METHOD(computeDigestOfType, "computeDigestOfType:error:"),
    QV_RECEIVER_METHOD(computeDigestStringOfType, "computeDigestStringOfType:error:"),
    QV_RECEIVER_METHOD(md5Digest, "md5Digest"), QV_RECEIVER_METHOD(sha1Digest, "sha1Digest"),
    QV_RECEIVER_METHOD(md5DigestData, "md5DigestData"),
    QV_RECEIVER_METHOD(sha1DigestData, "sha1DigestData"),
    QV_RECEIVER_METHOD(verifySignature,
                       "verifySignature:publicKeyCertData:retError:verificationResult:"),
    QV_RECEIVER_METHOD(encryptAES128With16ByteKey, "encryptAES128With16ByteKey:"),
    QV_RECEIVER_METHOD(decryptAES128With16ByteKey, "decryptAES128With16ByteKey:"),
    QV_RECEIVER_METHOD(encryptAES128WithPassword, "encryptAES128WithPassword:"),
    QV_RECEIVER_METHOD(decryptAES128WithPassword, "decryptAES128WithPassword:"));

} // namespace qv
