/* A C++ runtime as old as GCC 3.4's: it defines GLIBCXX_3.4 and CXXABI_1.3, nothing newer. */
int krv_old_cxx_base(void) {
    return 0;
}
int krv_old_cxx_abi(void) {
    return 0;
}
