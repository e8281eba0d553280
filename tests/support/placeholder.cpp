// Placeholder until the test support lands.
namespace krv_test {
int placeholder() { return 0; }
}  // namespace krv_test
