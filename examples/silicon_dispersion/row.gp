# Draws row_ds.txt: the wave-vector component of each branch over the tilt H, dark where the incident
# wave excites the branch.
set term png size 640,480
set output "row.png"
set title "Branches of the row 2 -2 0 of Si, 100 kV"
set xlabel "H"
set ylabel "k_z [1/A]"
set cblabel "excitation"
set xrange [-3:3]
set yrange [26.985:27.023]
set format y "%.3f"
set palette defined (0 "gray80", 1 "black")
set cbrange [0:1]
set grid xtics
set datafile commentschars "#k"
plot for [j = 1:7] "row_ds.txt" using 1:5*j-1:5*j+3 with lines linewidth 2 linecolor palette notitle, \
     "row_ds.txt" using 1:3 with lines dashtype 2 linecolor rgb "red" title "mean potential alone"
