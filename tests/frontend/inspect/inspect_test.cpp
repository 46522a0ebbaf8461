int main();
