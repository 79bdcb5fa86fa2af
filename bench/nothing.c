/* What every process costs: velun is measured against it. */
int main(void) {
  return 0;
}
