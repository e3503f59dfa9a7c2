// qCallbackW.h: qCallbackW, a byte sink that hands the bytes to a function of the caller's.
//
// For output that goes neither to a file nor to one block: a socket, a compressor, a hash.
//
//   int to_socket(void* user, const void* data, int count) {
//       return send(*static_cast<int*>(user), data, count, 0) == count ? count : -1;
//   }
//   qCallbackW sink(to_socket, &fd);
#pragma once

#include "qimg/encode/qIFileW.h"

class QIMG_API qCallbackW : public qIFileW {
public:
    // Takes `count` bytes at `data` and returns how many it took; anything other than `count`
    // is a failed write. `user` is the pointer given to the constructor.
    using Function = int (*)(void* user, const void* data, int count);

    // A null function gives a sink whose every write fails.
    qCallbackW(Function function, void* user) : function_(function), user_(user) {}
    ~qCallbackW() override;

    // -3 when the function takes fewer bytes than offered, or there is none.
    int write(const void* data, int count) override;

private:
    Function function_;
    void* user_;
};
