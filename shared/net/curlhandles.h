#pragma once

#include <curl/curl.h>
#include <memory>

/// libcurl's handles as owning pointers.
namespace curl {

struct Deleter
{
    void operator()(CURL *handle) const { curl_easy_cleanup(handle); }
    void operator()(curl_slist *list) const { curl_slist_free_all(list); }
    void operator()(curl_mime *mime) const { curl_mime_free(mime); }
    void operator()(CURLU *address) const { curl_url_cleanup(address); }
};
using Handle = std::unique_ptr<CURL, Deleter>;
using Address = std::unique_ptr<CURLU, Deleter>;
using List = std::unique_ptr<curl_slist, Deleter>;
using Mime = std::unique_ptr<curl_mime, Deleter>;

/// A number that libcurl reports for the last exchange; 0 if unavailable.
inline long longInfo(CURL *handle, CURLINFO info)
{
    long value = 0;
    curl_easy_getinfo(handle, info, &value);
    return value;
}

} // namespace curl
