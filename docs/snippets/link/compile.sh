g++ -std=c++20 points.cpp -o points $(pkg-config --cflags --libs qxkernel)
