#pragma once

/** The base of every parser of a tunnel stream's bytes. */
class hw_sync_parser_t {
public:
    virtual ~hw_sync_parser_t() = default;

    hw_sync_parser_t(const hw_sync_parser_t&) = delete;
    hw_sync_parser_t& operator=(const hw_sync_parser_t&) = delete;

protected:
    hw_sync_parser_t() = default;
};
