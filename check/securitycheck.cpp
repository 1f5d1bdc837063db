#include "check/securitycheck.h"

namespace Libraries::Files::Hive {

void SecurityCheck::use(u32 key, u32 record) {
    if (record == 0 || record == INVALID_RECORD) return _context.note(key, "no security record");
    if (!_users.empty() && _users.back().record == record)
        ++_users.back().keys;
    else
        _users.push_back({record, 1, key});
}

void SecurityCheck::checkRing(u32 root, u32 first) {
    sumUp();
    followRing(root, first);
    for (const Users& users : _users) {
        const u32 index = _context.cells.find(users.record);
        if (index == CellTable::NONE || _context.cells.use(index) != CellUse::security)
            _context.fault(users.first, "its security record at " + hexText(users.record) + ", used by " +
                                            countText(users.keys, "key") + ", is not on the ring");
    }
}

void SecurityCheck::sumUp() {
    std::sort(_users.begin(), _users.end(),
              [](const Users& left, const Users& right) { return left.record < right.record; });
    std::size_t kept = 0;
    for (const Users& users : _users) {
        if (kept && _users[kept - 1].record == users.record)
            _users[kept - 1].keys += users.keys;
        else
            _users[kept++] = users;
    }
    _users.resize(kept);
}

u32 SecurityCheck::usersOf(u32 record) const {
    const auto found = std::lower_bound(_users.begin(), _users.end(), record,
                                        [](const Users& users, u32 offset) { return users.record < offset; });
    return found != _users.end() && found->record == record ? found->keys : 0;
}

void SecurityCheck::followRing(u32 root, u32 first) {
    if (first == 0 || first == INVALID_RECORD) return;
    u32 firstBlink = 0, blink = 0, flink = 0;
    if (!checkRecord(first, root, firstBlink, flink)) return;
    u32 last = first;
    while (flink != first) {
        if (flink == 0 || flink == INVALID_RECORD) return _context.fault(last, "the ring ends here");
        const u32 record = flink;
        // One met before that is not the first: a ring within the ring, told as a cell in use already.
        if (!checkRecord(record, last, blink, flink)) return;
        if (blink != last)
            _context.fault(record, "back link " + hexText(blink) + ", should be " + hexText(last));
        last = record;
    }
    if (firstBlink != last)
        _context.fault(first, "back link " + hexText(firstBlink) + ", should be " + hexText(last));
}

bool SecurityCheck::checkRecord(u32 record, u32 owner, u32& blink, u32& flink) {
    const TakenCell cell = _context.take(record, CellUse::security, owner);
    if (!cell) return false;
    const RecordView view = _context.record(cell, sizeof(hive_record_sk));
    const auto sk = view.as<hive_record_sk>();
    if (cell.length < sizeof(sk) || view.signature() != "sk") {
        _context.fault(record, "no security record");
        return false;
    }
    const u32 size = L32ToHost(sk.descriptorSize), count = L32ToHost(sk.refCount);
    if (size > cell.length - sizeof(sk))
        _context.fault(record, "descriptor of " + countText(size, "byte") + " runs past its cell");
    if (count != usersOf(record))
        _context.fault(record, "reference count " + std::to_string(count) + ", used by " +
                                   countText(usersOf(record), "key"));
    blink = L32ToHost(sk.blink);
    flink = L32ToHost(sk.flink);
    return true;
}

}  // namespace Libraries::Files::Hive
