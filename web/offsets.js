// Positioned reads and writes past 2 GB: this emscripten's own versions keep
// only the low 32 bits of the offset, as a signed number, so a bank's chunks
// beyond 2 GB could not be read, nor a sample pool's wave written past there.
mergeInto(LibraryManager.library, {
  fd_pread: function (fd, iov, iovcnt, offsetLow, offsetHigh, pnum) {
    var stream = SYSCALLS.getStreamFromFD(fd);
    HEAP32[pnum >>> 2] = SYSCALLS.doReadv(stream, iov, iovcnt, offsetHigh * 0x100000000 + (offsetLow >>> 0));
    return 0;
  },
  fd_pwrite: function (fd, iov, iovcnt, offsetLow, offsetHigh, pnum) {
    var stream = SYSCALLS.getStreamFromFD(fd);
    HEAP32[pnum >>> 2] = SYSCALLS.doWritev(stream, iov, iovcnt, offsetHigh * 0x100000000 + (offsetLow >>> 0));
    return 0;
  },
});
