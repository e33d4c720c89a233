/* Uses only the installed header and library. */
#include <stdio.h>
#include <tavix/tavix.h>

int main(void) {
  unsigned char a[4] = {200, 10, 0, 255}, b[4] = {100, 20, 0, 1}, out[4];
  char version[8];
  tvxGetVersion(version, sizeof version);
  if (tvxSetOperationMode(TAVIX_OP_CPU_PERFORMANCE) != 0) return 1;
  if (tvxAddu8(a, 4, 1, 0, b, 0, TVX_CONVERT_POLICY_SATURATE, out, 0) != 0) return 2;
  printf("%s %d %d %d %d\n", version, out[0], out[1], out[2], out[3]);
  return !(out[0] == 255 && out[1] == 30 && out[2] == 0 && out[3] == 255);
}
