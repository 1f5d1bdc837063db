#pragma once

#include <memory>

#include "bench/tree.h"

namespace HiveBench {

/// A way to keep the tree in a file. Each operation opens the file, does its work, makes what it wrote
/// durable and closes the file; it throws std::runtime_error when anything is not as it should be.
class Store {
 public:
    virtual ~Store() = default;
    virtual const char* name() const = 0;
    /// Whether names are kept, and hashed, as UTF-8 or as UTF-16.
    virtual bool utf8Names() const = 0;

    /// Makes a new file that holds the tree.
    virtual void build(const std::string& file, const Tree& tree) = 0;
    /// Finds keys by their paths and reads a value of each; returns the sum of `hashBytes(data, type)`.
    virtual u64 lookUp(const std::string& file, std::span<const Query> queries) = 0;
    /// Depth first, key by key, subkeys and values with their data.
    virtual Totals walk(const std::string& file) = 0;
    virtual void change(const std::string& file, const Changes& changes) = 0;

    /// Whether there are the two operations on registry export text.
    virtual bool hasText() const = 0;
    /// Writes the text, which is not made durable.
    virtual void exportText(const std::string& file, const std::string& text) = 0;
    /// Makes a new file of the text.
    virtual void importText(const std::string& text, const std::string& file) = 0;
};

/// The stores this program was built with, the hive first.
std::vector<std::unique_ptr<Store>> allStores();

std::unique_ptr<Store> newHiveStore();
std::unique_ptr<Store> newSqliteStore();
std::unique_ptr<Store> newLmdbStore();

/// Throws std::runtime_error unless `good`.
void need(bool good, const char* what);

}  // namespace HiveBench
