#pragma once

#include <QString>

#include <optional>

// Passwords in the system keyring (the Secret Service through QtKeychain),
// one per server record, under the service "Quenvar" and the record's id.
// Every call waits for its answer, a few milliseconds on a live keyring.
// Where no keyring answers (no session bus, no Secret Service, a locked or
// hung one) every call fails fast from then on, and callers keep the password
// in the settings file, which is readable only by its user.
namespace SecretStore {

// Whether a keyring answered (probed once, then remembered).
bool available();
bool write(const QString& key, const QString& secret);
// The secret, or nothing when there is none or the keyring does not answer.
std::optional<QString> read(const QString& key);
bool remove(const QString& key);

} // namespace SecretStore
